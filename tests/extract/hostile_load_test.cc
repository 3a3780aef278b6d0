// Load: many runs in one process, and one run with thousands of files in
// flight at once (each holds two threads and a 16 MiB ring until the end of
// the archive), also when the process runs out of descriptors or address
// space on the way. Nothing may grow from run to run, and a run that cannot
// get what it needs must end with a failure status, not hang or crash.
//
// EV_LOAD_RUNS sets the number of consecutive runs (default 200);
// EV_LOAD_FILES the number of files in flight (default 5000).
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "extract/run_state.h"
#include "tests/extract/hostile_run.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define EV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define EV_SANITIZED 1
#endif
#endif

namespace runtest {
namespace {

using package::Entry;
using testsupport::SignedManifest;

size_t CountEntries(const char* directory) {
  size_t count = 0;
  if (DIR* dir = opendir(directory)) {
    while (const dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
    closedir(dir);
  }
  return count;
}

// Bytes of the process's address space in use, or of them resident.
uint64_t MemoryBytes(bool resident) {
  std::ifstream statm("/proc/self/statm");
  uint64_t pages = 0;
  uint64_t residentPages = 0;
  statm >> pages >> residentPages;
  return (resident ? residentPages : pages) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

class LoadTest : public HostileRunTest {
 protected:
  // `count` small files, all of them before the signed manifest's place: a
  // signed manifest fits in 4096 bytes and lists a few dozen files at most,
  // so a package of thousands has none, and its run ends with VER_ERR01
  // after writing them all.
  std::vector<Entry> ManyFiles(int count) {
    std::vector<Entry> entries;
    for (int i = 0; i < count; ++i) {
      char name[32];
      snprintf(name, sizeof name, "f%05d", i);
      entries.push_back(Entry::Generated(name, 64 + i % 512, static_cast<uint64_t>(i)));
    }
    return entries;
  }
};

TEST_F(LoadTest, ConsecutiveRunsLeaveNoDescriptorThreadOrMemoryBehind) {
  std::vector<Entry> entries = {SignedManifest(), Entry::Generated("a.bin", 100000, 1),
                                Entry::File("b.txt", "b\n")};
  auto package = Build(entries);
  const Digests digests = ManifestDigests(entries);
  const int runs = RoundsFromEnvironment("EV_LOAD_RUNS", 200);
  const int warmUp = std::min(20, runs / 2);

  size_t descriptors = 0;
  size_t threads = 0;
  uint64_t resident = 0;
  for (int i = 0; i < runs; ++i) {
    if (i == warmUp) {
      descriptors = CountEntries("/proc/self/fd");
      threads = CountEntries("/proc/self/task");
      resident = MemoryBytes(true);
    }
    ClearDestination();
    RunResult run = BoundedRun(package.path);
    ASSERT_EQ(run.status, KALU_NO_ERR) << "run " << i;
    ExpectSafeOutcome(run, digests, package.manifestText, "run " + std::to_string(i));
  }
  // Each run also checks its own descriptors and threads (run_fixture.h).
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_EQ(CountEntries("/proc/self/task"), threads);
  const uint64_t now = MemoryBytes(true);
  const uint64_t grown = now > resident ? now - resident : 0;
  printf("%d runs: resident memory %llu KiB after warm-up, grown by %llu KiB\n", runs,
         static_cast<unsigned long long>(resident >> 10),
         static_cast<unsigned long long>(grown >> 10));
#if !defined(EV_SANITIZED)
  // The sanitizers hold freed memory back on purpose; elsewhere a run's
  // 4 MiB and 16 MiB rings come back whole.
  EXPECT_LT(grown, uint64_t{4} << 20);
#endif
}

TEST_F(LoadTest, ThousandsOfFilesAreAllInFlightAndWrittenWhole) {
#if defined(EV_SANITIZED)
  // ThreadSanitizer allows 8128 threads in all, and both sanitizers make
  // every thread far heavier: a fifth of the files still puts 2000 in flight.
  const int count = RoundsFromEnvironment("EV_LOAD_FILES", 1000);
#else
  const int count = RoundsFromEnvironment("EV_LOAD_FILES", 5000);
#endif
  std::vector<Entry> entries = ManyFiles(count);
  auto package = Build(entries);

  RunResult run = BoundedRun(package.path, nullptr, false, {}, std::chrono::seconds(300));

  EXPECT_EQ(run.status, VER_ERR01);
  EXPECT_EQ(g_hashResult.size(), static_cast<size_t>(count));
  const Digests digests = ManifestDigests(entries);
  EXPECT_EQ(CountEntries(m_dest.c_str()), static_cast<size_t>(count));
  for (const auto& file : digests) {
    ASSERT_EQ(g_hashResult[file.first], file.second) << file.first;
    ASSERT_EQ(package::Sha256Hex(testsupport::ReadFile(Out(file.first))), file.second)
        << file.first;
  }
  ExpectSafeOutcome(run, digests, "", "many files");
}

TEST_F(LoadTest, RunningOutOfDescriptorsFailsTheRun) {
  std::vector<Entry> entries = ManyFiles(600);
  auto package = Build(entries);
  RunResult run;
  {
    // Room for what the process holds now and a few hundred files more.
    ProcessLimit descriptors(RLIMIT_NOFILE, CountEntries("/proc/self/fd") + 300);
    run = BoundedRun(package.path);
  }
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Error opening file. FD: -1 / Error no: " + std::to_string(EMFILE)));
  EXPECT_TRUE(run.Printed("Failed to write content: "));
  ExpectSafeOutcome(run, ManifestDigests(entries), "", "descriptors");
}

#if !defined(EV_SANITIZED)
// The sanitizers reserve terabytes of address space of their own, so the
// limit cannot be tried under them.
TEST_F(LoadTest, RunningOutOfAddressSpaceFailsTheRun) {
  std::vector<Entry> entries = ManyFiles(400);
  auto package = Build(entries);
  RunResult run;
  {
    // A 32-bit head unit's worth: about a hundred files fit in 3 GiB.
    ProcessLimit addressSpace(RLIMIT_AS, MemoryBytes(false) + (uint64_t{3} << 30));
    run = BoundedRun(package.path);
  }
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("THashAndWriteBuffer object is failed to create \n") ||
              run.Printed("Thread failed to create - "));
  ExpectSafeOutcome(run, ManifestDigests(entries), "", "address space");
}
#endif

}  // namespace
}  // namespace runtest
