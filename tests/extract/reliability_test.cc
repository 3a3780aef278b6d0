// Reliability: damaged packages, faults around a run, and load. No run may
// hang or crash, leave anything behind or report success unless every file
// it wrote matches the signed manifest (the fixture's checks, run_fixture.h).
//
// EV_DAMAGE_ROUNDS, EV_ABORT_ROUNDS, EV_LOAD_RUNS and EV_LOAD_FILES set the
// number of damaged packages (200), aborted runs (30), consecutive runs (200)
// and files in flight.
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <thread>

#include "platform/file_io.h"
#include "tests/extract/run_fixture.h"

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

const size_t kTarBlock = 512;
// A 32-bit process has 4 GiB of address space: a file in flight costs its
// 16 MiB ring and two thread stacks of 8 MiB, so about 125 fit.
constexpr bool kNarrowAddressSpace = sizeof(void*) == 4;

int Rounds(const char* variable, int fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && std::atoi(value) > 0 ? std::atoi(value) : fallback;
}

// `run` under a soft limit of `resource`, restored afterwards.
RunResult Limited(int resource, uint64_t value, const std::function<RunResult()>& run) {
  rlimit saved{};
  getrlimit(resource, &saved);
  rlimit limit = saved;
  limit.rlim_cur = value;
  EXPECT_EQ(setrlimit(resource, &limit), 0) << "limit " << resource;
  RunResult result = run();
  setrlimit(resource, &saved);
  return result;
}

class ReliabilityTest : public RunTest {
 protected:
  // Runs over `bytes` written as the package; counts the outcome.
  _KALU_Error RunOver(const std::string& bytes, const std::string& context) {
    SCOPED_TRACE(context);
    testsupport::WriteFile(m_dir.file("package.tar.gz"), bytes);
    ClearDestination();
    const _KALU_Error status = Run(m_dir.file("package.tar.gz")).status;
    ++m_outcomes[status];
    return status;
  }
  void PrintOutcomes(const char* what) {
    printf("%s:", what);
    for (const auto& outcome : m_outcomes) {
      printf(" %s x%d", CKALUStatus::EnumToStr(outcome.first), outcome.second);
    }
    printf("\n");
    m_outcomes.clear();
  }
  std::map<_KALU_Error, int> m_outcomes;
};

// Where the headers of a tar (pax headers included) start, each with the end
// of its data, padding included; the last element is the end-of-archive mark.
std::vector<std::pair<size_t, size_t>> Headers(const std::string& tar) {
  std::vector<std::pair<size_t, size_t>> headers;
  size_t at = 0;
  while (at + kTarBlock <= tar.size() && tar[at] != '\0') {
    const size_t size = std::strtoull(tar.substr(at + 124, 12).c_str(), nullptr, 8);
    headers.emplace_back(at, at + kTarBlock + size);
    at += kTarBlock + (size + kTarBlock - 1) / kTarBlock * kTarBlock;
  }
  headers.emplace_back(at, at);
  return headers;
}

// The package cut short (the gzip trailer is checked: even the last byte
// missing fails), its tar cut inside a header or an entry's data, and seeded
// overwritten bytes, in its compressed form and in its tar (compressed
// again, so that the damage reaches the archive reader past the gzip checks).
TEST_F(ReliabilityTest, DamagedPackageFailsOrWritesOnlySignedFiles) {
  std::string tar;
  testsupport::PackageOptions keepTar;
  keepTar.editTar = [&](std::string* built) { tar = *built; };
  const std::string good = testsupport::ReadFile(
      Build({SignedManifest(), Entry::File("readme.txt", "read me\n"),
             Entry::Generated("app.bin", 200000, 21, true), Entry::Generated("data.bin", 70000, 22),
             Entry::File("tiny", "t")},
            keepTar)
          .path);
  std::set<size_t> cuts = {0, 1, 5, 10, 12};
  for (size_t at = 16; at < 1600; at += 197) cuts.insert(at);
  for (size_t i = 1; i < 20; ++i) cuts.insert(good.size() * i / 20);
  for (size_t back : {1, 4, 8, 9, 12, 24}) cuts.insert(good.size() - back);
  for (size_t cut : cuts) {
    EXPECT_EQ(RunOver(good.substr(0, cut), "cut at " + std::to_string(cut)), PKG_ERR03);
  }
  PrintOutcomes("compressed package cut short");

  const auto headers = Headers(tar);
  ASSERT_GE(headers.size(), 6u);
  for (const auto& header : headers) {
    for (size_t cut : {header.first + 1, header.first + 511, header.first + kTarBlock,
                       (header.first + kTarBlock + header.second) / 2, header.second}) {
      const bool cutsAnEntry = &header != &headers.back() && cut < header.second;
      const std::string context = "tar cut at " + std::to_string(cut);
      const _KALU_Error status = RunOver(package::GzipCompress(tar.substr(0, cut)), context);
      if (cutsAnEntry) {
        EXPECT_NE(status, KALU_NO_ERR) << context;
      }
    }
  }
  PrintOutcomes("tar cut short");

  std::mt19937_64 random(0x5eed);
  auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
  for (int round = 0; round < Rounds("EV_DAMAGE_ROUNDS", 200); ++round) {
    // Odd rounds damage the tar, half the time inside a header.
    const bool inTar = round % 2 == 1;
    std::string bytes = inTar ? tar : good;
    for (int damages = 1 + static_cast<int>(below(4)); damages > 0; --damages) {
      size_t at = below(bytes.size());
      if (inTar && random() % 2 == 0) at = headers[below(headers.size() - 1)].first + below(kTarBlock);
      for (size_t n = below(3) == 0 ? 1 + below(16) : 1; n > 0 && at < bytes.size(); --n, ++at) {
        bytes[at] = static_cast<char>(random() % 2 ? random() : bytes[at] ^ (1 << below(8)));
      }
    }
    RunOver(inTar ? package::GzipCompress(bytes) : bytes, "damage round " + std::to_string(round));
    if (HasFailure()) break;  // one reported round is enough to go on with
  }
  PrintOutcomes("damaged packages");
}

// A package of a few MiB, twice the read ring: the reader waits for the
// extraction, and polls the abort flag, for most of the run. The destination
// fills up (writes fail with EFBIG), the source fails part way (reads go in
// 32 KiB units: short of the last unit data is missing, and past the read
// that finds the end of the file nothing fails), an abort comes at any
// moment: every run ends, failed or complete, and the process carries on.
TEST_F(ReliabilityTest, FaultsEndTheRunFailedOrComplete) {
  const uint64_t size = Build({SignedManifest(), Entry::Generated("image.bin", 8 << 20, 31),
                               Entry::Generated("config.bin", 1 << 20, 32, true),
                               Entry::File("notes.txt", "notes\n")})
                            .size;
  const std::string path = m_dir.file("package.tar.gz");
  for (uint64_t limit : {uint64_t{16} << 10, uint64_t{1} << 20}) {
    ClearDestination();
    sighandler_t saved = signal(SIGXFSZ, SIG_IGN);  // writes past the limit fail with EFBIG
    RunResult run = Limited(RLIMIT_FSIZE, limit, [&] { return Run(path); });
    signal(SIGXFSZ, saved);
    EXPECT_EQ(run.status, PKG_ERR03) << limit;
    EXPECT_TRUE(run.Printed("Failed to write content: " + std::to_string(EFBIG) + " ")) << limit;
  }
  for (uint64_t budget : {uint64_t{0}, uint64_t{1}, uint64_t{32768}, size / 2, size - (64 << 10),
                          size - 1, size + (64 << 10)}) {
    SCOPED_TRACE("reads failing after " + std::to_string(budget));
    ClearDestination();
    platform::InjectReadFailureAfter(static_cast<int64_t>(budget));
    RunResult run = Run(path);
    platform::InjectReadFailureAfter(-1);
    if (budget + (64 << 10) <= size) {
      EXPECT_EQ(run.status, PKG_ERR03);
      EXPECT_TRUE(run.Printed("Failed to read contents\n"));
      EXPECT_TRUE(run.Logged("23:copyWithHash:Failed to read contents "));
    } else if (budget >= size + (64 << 10)) {
      EXPECT_EQ(run.status, KALU_NO_ERR);
    }
  }
  // The moments range over how long the reader takes in an undisturbed run.
  const auto start = std::chrono::steady_clock::now();
  ClearDestination();
  ASSERT_EQ(Run(path).status, KALU_NO_ERR);
  const int64_t reading = std::chrono::duration_cast<std::chrono::microseconds>(
                              std::chrono::steady_clock::now() - start).count();
  std::mt19937_64 random(0xab047);
  for (int round = 0; round < Rounds("EV_ABORT_ROUNDS", 30); ++round) {
    const auto moment = std::chrono::microseconds(random() % static_cast<uint64_t>(reading + 1));
    ClearDestination();
    RunOptions abort;
    abort.duringRun = [moment] {
      std::this_thread::sleep_for(moment);
      AbortExtraction();
    };
    const _KALU_Error status = Run(path, abort).status;
    EXPECT_TRUE(status == KALU_NO_ERR || status == PKG_ERR03) << status;
    ++m_outcomes[status];
  }
  PrintOutcomes("aborted runs");
}

// Bytes the allocator has handed out and not had back, mapped blocks (the
// rings) included. Resident memory would also count what an emulator keeps
// for the threads it has run.
uint64_t HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST_F(ReliabilityTest, ConsecutiveRunsLeaveNoDescriptorThreadOrMemoryBehind) {
  const std::string path =
      Build({SignedManifest(), Entry::Generated("a.bin", 100000, 1), Entry::File("b", "b\n")}).path;
  const int runs = Rounds("EV_LOAD_RUNS", 200);
  size_t descriptors = 0, threads = 0;
  uint64_t heap = 0;
  for (int i = 0; i < runs; ++i) {
    if (i == std::min(20, runs / 2)) {  // after a warm-up
      descriptors = CountEntries("/proc/self/fd");
      threads = CountEntries("/proc/self/task");
      heap = HeapBytes();
    }
    ClearDestination();
    ASSERT_EQ(Run(path).status, KALU_NO_ERR) << "run " << i;
  }
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_EQ(CountEntries("/proc/self/task"), threads);
  const uint64_t grown = HeapBytes() > heap ? HeapBytes() - heap : 0;
  printf("%d runs: heap grown by %llu KiB\n", runs, static_cast<unsigned long long>(grown >> 10));
#if !defined(EV_SANITIZED)
  EXPECT_LT(grown, uint64_t{1} << 20);  // the sanitizers' allocators keep their own books
#endif
}

// `count` small files and no signed manifest (one lists a few dozen files
// at most): the run writes them all and ends with VER_ERR01.
std::vector<Entry> ManyFiles(int count) {
  std::vector<Entry> entries;
  for (int i = 0; i < count; ++i) {
    char name[32];
    snprintf(name, sizeof name, "f%05d", i);
    entries.push_back(Entry::Generated(name, 64 + i % 512, static_cast<uint64_t>(i)));
  }
  return entries;
}

// Every file holds two threads and a 16 MiB ring until the end of the
// archive; a run that cannot get descriptors or address space fails.
TEST_F(ReliabilityTest, ManyFilesInFlightAreWrittenWholeOrFailForWantOfResources) {
#if defined(EV_SANITIZED)
  const int fallback = 1000;  // ThreadSanitizer allows 8128 threads in all
#else
  const int fallback = kNarrowAddressSpace ? 100 : 5000;
#endif
  const int count = Rounds("EV_LOAD_FILES", fallback);
  RunOptions patient;
  patient.bound = std::chrono::seconds(300);
  RunResult run = Run(Build(ManyFiles(count)).path, patient);
  EXPECT_EQ(run.status, VER_ERR01);
  EXPECT_EQ(CountEntries(m_dest.c_str()), static_cast<size_t>(count));
  EXPECT_EQ(g_hashResult, m_expected);

  ClearDestination();
  const std::string path = Build(ManyFiles(kNarrowAddressSpace ? 60 : 600)).path;
  run = Limited(RLIMIT_NOFILE, CountEntries("/proc/self/fd") + (kNarrowAddressSpace ? 30 : 300),
                [&] { return Run(path); });
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Error opening file. FD: -1 / Error no: " + std::to_string(EMFILE)));
#if !defined(EV_SANITIZED)
  // The sanitizers reserve terabytes of address space of their own. A 32-bit
  // process runs out of its own 4 GiB; a 64-bit one gets a head unit's worth.
  ClearDestination();
  Build(ManyFiles(400));
  std::ifstream statm("/proc/self/statm");
  uint64_t pages = 0;
  statm >> pages;
  run = Limited(RLIMIT_AS,
                kNarrowAddressSpace ? RLIM_INFINITY
                                    : pages * sysconf(_SC_PAGESIZE) + (uint64_t{3} << 30),
                [&] { return Run(path); });
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("THashAndWriteBuffer object is failed to create \n") ||
              run.Printed("Thread failed to create - "));
#endif
}

}  // namespace
}  // namespace runtest
