// Load: many runs in one process, and one run with many files in flight at
// once (each holds two threads and a 16 MiB ring until the end of the
// archive), also when the process runs out of descriptors or address space
// on the way. Nothing may grow from run to run, and a run that cannot get
// what it needs must end with a failure status, not hang or crash.
//
// EV_LOAD_RUNS sets the number of consecutive runs (default 200);
// EV_LOAD_FILES the number of files in flight.
#include <gtest/gtest.h>

#include <malloc.h>
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

// A 32-bit process has 4 GiB of address space: a file in flight costs its
// 16 MiB ring and two thread stacks of 8 MiB, so about 125 fit.
constexpr bool kNarrowAddressSpace = sizeof(void*) == 4;

// Bytes the allocator has handed out and not had back, mapped blocks (the
// rings) included. Resident memory would also count what an emulator keeps
// for the threads it has run, which grows by megabytes per run under
// qemu-arm although the program frees everything.
uint64_t HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// `count` small files, all of them before the signed manifest's place: a
// signed manifest fits in 4096 bytes and lists a few dozen files at most,
// so a package of many has none, and its run ends with VER_ERR01 after
// writing them all.
std::vector<Entry> ManyFiles(int count) {
  std::vector<Entry> entries;
  for (int i = 0; i < count; ++i) {
    char name[32];
    snprintf(name, sizeof name, "f%05d", i);
    entries.push_back(Entry::Generated(name, 64 + i % 512, static_cast<uint64_t>(i)));
  }
  return entries;
}

using LoadTest = HostileRunTest;

TEST_F(LoadTest, ConsecutiveRunsLeaveNoDescriptorThreadOrMemoryBehind) {
  std::vector<Entry> entries = {SignedManifest(), Entry::Generated("a.bin", 100000, 1),
                                Entry::File("b.txt", "b\n")};
  auto package = Build(entries);
  const Digests digests = ManifestDigests(entries);
  const int runs = RoundsFromEnvironment("EV_LOAD_RUNS", 200);
  const int warmUp = std::min(20, runs / 2);

  size_t descriptors = 0, threads = 0;
  uint64_t heap = 0;
  for (int i = 0; i < runs; ++i) {
    if (i == warmUp) {
      descriptors = CountEntries("/proc/self/fd");
      threads = CountEntries("/proc/self/task");
      heap = HeapBytes();
    }
    ClearDestination();
    RunResult run = BoundedRun(package.path);
    ASSERT_EQ(run.status, KALU_NO_ERR) << "run " << i;
    ExpectSafeOutcome(run, digests, package.manifestText, "run " + std::to_string(i));
  }
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_EQ(CountEntries("/proc/self/task"), threads);
  const uint64_t now = HeapBytes();
  const uint64_t grown = now > heap ? now - heap : 0;
  printf("%d runs: heap %llu KiB after warm-up, grown by %llu KiB\n", runs,
         static_cast<unsigned long long>(heap >> 10),
         static_cast<unsigned long long>(grown >> 10));
#if !defined(EV_SANITIZED)
  // The sanitizers' allocators keep their own books; elsewhere a run's
  // 4 MiB and 16 MiB rings come back whole.
  EXPECT_LT(grown, uint64_t{1} << 20);
#endif
}

TEST_F(LoadTest, ManyFilesAreAllInFlightAndWrittenWhole) {
#if defined(EV_SANITIZED)
  // ThreadSanitizer allows 8128 threads in all, and both sanitizers make
  // every thread far heavier.
  const int fallback = 1000;
#else
  const int fallback = kNarrowAddressSpace ? 100 : 5000;
#endif
  const int count = RoundsFromEnvironment("EV_LOAD_FILES", fallback);
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
  // Few enough files in flight that a 32-bit address space holds them all.
  const int files = kNarrowAddressSpace ? 60 : 600;
  const int allowance = kNarrowAddressSpace ? 30 : 300;
  std::vector<Entry> entries = ManyFiles(files);
  auto package = Build(entries);
  RunResult run;
  {
    ProcessLimit descriptors(RLIMIT_NOFILE, CountEntries("/proc/self/fd") + allowance);
    run = BoundedRun(package.path);
  }
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Error opening file. FD: -1 / Error no: " + std::to_string(EMFILE)));
  EXPECT_TRUE(run.Printed("Failed to write content: "));
  ExpectSafeOutcome(run, ManifestDigests(entries), "", "descriptors");
}

#if !defined(EV_SANITIZED)
// The sanitizers reserve terabytes of address space of their own, so the
// limit cannot be tried under them. A 32-bit process runs out of its own
// 4 GiB (an emulator ignores the limit); a 64-bit one is given a 32-bit
// head unit's worth.
TEST_F(LoadTest, RunningOutOfAddressSpaceFailsTheRun) {
  std::vector<Entry> entries = ManyFiles(400);
  auto package = Build(entries);
  RunResult run;
  if (kNarrowAddressSpace) {
    run = BoundedRun(package.path);
  } else {
    std::ifstream statm("/proc/self/statm");
    uint64_t pages = 0;
    statm >> pages;
    ProcessLimit addressSpace(RLIMIT_AS, pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) +
                                             (uint64_t{3} << 30));
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
