// Reliability: damaged packages, faults around a run, and load. No run may
// hang or crash, leave anything behind or report success unless every file
// it wrote matches the signed manifest (the fixture's checks, run_fixture.h).
//
// EV_DAMAGE_ROUNDS, EV_ABORT_ROUNDS, EV_LOAD_RUNS and EV_LOAD_FILES set the
// number of damaged packages (200), aborted runs (12), consecutive runs (200)
// and files in flight; EV_LONG_TESTS=1 adds a file past 4 GiB.
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

#include "platform/file_io.h"
#if EV_HAVE_ISAL
#include "extract/tar_inflater.h"
#endif
#include "authoring/package/manifest_text.h"
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

// A 32-bit process has 4 GiB of address space: a file in flight costs two
// thread stacks of 8 MiB (its ring comes from a pool), so about 250 fit.
constexpr bool kNarrowAddressSpace = sizeof(void*) == 4;

int Rounds(const char* variable, int fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && std::atoi(value) > 0 ? std::atoi(value) : fallback;
}

// `run` under a soft limit of `resource`, restored afterwards. Writes past a
// file size limit fail with EFBIG instead of raising SIGXFSZ.
RunResult Limited(int resource, uint64_t value, const std::function<RunResult()>& run) {
  rlimit saved{};
  getrlimit(resource, &saved);
  rlimit limit = saved;
  limit.rlim_cur = value;
  EXPECT_EQ(setrlimit(resource, &limit), 0) << "limit " << resource;
  sighandler_t savedHandler = signal(SIGXFSZ, SIG_IGN);
  RunResult result = run();
  signal(SIGXFSZ, savedHandler);
  setrlimit(resource, &saved);
  return result;
}

#if EV_HAVE_ISAL
// The lines of a run, sorted (its threads print in no fixed order), without
// the time it took. The reader's line that comes at any point of the extract
// thread's output goes, lest it split another line.
std::vector<std::string> Lines(const RunResult& run) {
  std::string text = run.output;
  text.erase(text.find("Wait extractTid thread to join\n"), 31);
  for (const std::string& line : run.logs) text += "logged:" + line + "\n";
  std::istringstream lines(std::regex_replace(text, std::regex("Time = [0-9.]+"), ""));
  std::vector<std::string> sorted;
  for (std::string line; std::getline(lines, line);) sorted.push_back(line);
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}
#endif

// A package's gzip layer damaged on purpose: the status and a line on the
// library's route; and, where the reader inflates, the same status and lines
// on libarchive's own route, unless the damage is one that only the reader's
// checks of the gzip trailers find.
struct GzipDamage {
  std::string name;
  std::string bytes;
  _KALU_Error status;
  std::string printed = {};
  bool onlyTheReaderSees = false;
};

// The tar as gzip members, split at `splits`; `ends` receives where each
// member ends.
std::string Members(const std::string& tar, std::vector<size_t> splits, std::vector<size_t>* ends) {
  std::string members;
  splits.push_back(tar.size());
  for (size_t at = 0, i = 0; i < splits.size(); at = splits[i++]) {
    members += package::GzipCompress(tar.substr(at, splits[i] - at));
    ends->push_back(members.size());
  }
  return members;
}

// Cuts anywhere, and at every byte around each member's end (the last
// deflate bytes, the trailer, the next header), with the tar split at an
// arbitrary point and at 64 KiB boundaries, where libarchive's gzip filter
// ends an output block with the member; trailers that lie; headers that
// libarchive would not take; what may follow the last member.
std::vector<GzipDamage> GzipDamages(const std::string& tar) {
  std::vector<GzipDamage> damages;
  const std::string one = package::GzipCompress(tar);
  for (size_t i = 0; i < 20; ++i) {
    damages.push_back({"cut", one.substr(0, one.size() * i / 20), PKG_ERR03});
  }
  for (const std::vector<size_t>& splits : {std::vector<size_t>{100000}, {131072, 196608}}) {
    std::vector<size_t> ends;
    const std::string members = Members(tar, splits, &ends);
    damages.push_back({"members", members, KALU_NO_ERR});
    for (size_t end : ends) {
      for (size_t cut = end - 12; cut < std::min(end + 12, members.size()); ++cut) {
        damages.push_back({"cut at " + std::to_string(cut), members.substr(0, cut), PKG_ERR03});
      }
    }
    std::string crc = members, size = members;
    crc[ends[0] - 8] ^= 1;
    size.back() ^= 1;
    damages.push_back({"CRC-32", crc, PKG_ERR03, "damaged: gzip member 1: CRC-32 ", true});
    damages.push_back({"ISIZE", size, PKG_ERR03, "bytes (modulo 2^32), its trailer says ", true});
  }
  auto header = [&](size_t at, char value) {
    std::string bytes = one;
    bytes[at] = value;
    return bytes;
  };
  const std::string unrecognized = "(Unrecognized archive format)\n";
  damages.push_back({"magic or method", header(2, 7), PKG_ERR03, unrecognized});
  damages.push_back({"reserved flag", header(3, 0x20), PKG_ERR03, unrecognized});
  for (char flag : {2, 4, 8, 16}) damages.push_back({"flag", header(3, flag), PKG_ERR03});
  damages.push_back({"garbage after", one + package::GenerateContent(100, 7), KALU_NO_ERR});
  damages.push_back(
      {"member after, broken", one + std::string("\x1f\x8b\x08\0garbage after", 17), PKG_ERR03});
  damages.push_back({"not gzip", tar, KALU_NO_ERR});
  damages.push_back({"gzip twice", package::GzipCompress(one), KALU_NO_ERR});
  return damages;
}

// Packages whose gzip layer is damaged fail alike on both routes; other
// damage, seeded in the compressed form and in the tar (compressed again, so
// that it reaches the archive reader past the gzip checks; half the time
// inside a header, where names, sizes and types live), never passes unless
// the files match.
TEST_F(RunTest, DamagedPackageFailsOrWritesOnlySignedFiles) {
  std::string tar;
  testsupport::PackageOptions keepTar;
  keepTar.editTar = [&](std::string* built) { tar = *built; };
  const std::string good = testsupport::ReadFile(
      Build({SignedManifest(), Entry::File("readme.txt", "read me\n"),
             Entry::Generated("app.bin", 200000, 21, true), Entry::Generated("data.bin", 70000, 22),
             Entry::File("tiny", "t")},
            keepTar)
          .path);
  auto runOver = [&](const std::string& bytes) {
    testsupport::WriteFile(m_package, bytes);
    ClearDestination();
    return Run(m_package);
  };
  for (const GzipDamage& damage : GzipDamages(tar)) {
    SCOPED_TRACE(damage.name);
    const RunResult run = runOver(damage.bytes);
    const bool seen = EV_HAVE_ISAL || !damage.onlyTheReaderSees;
    EXPECT_EQ(run.status, seen ? damage.status : KALU_NO_ERR);
    EXPECT_TRUE(!seen || run.Printed(damage.printed)) << run.output;
#if EV_HAVE_ISAL
    ev::SetTarInflaterEnabled(false);
    const RunResult libarchive = runOver(damage.bytes);
    ev::SetTarInflaterEnabled(true);
    if (damage.onlyTheReaderSees) {
      EXPECT_EQ(libarchive.status, KALU_NO_ERR);
    } else {
      EXPECT_EQ(libarchive.status, run.status);
      EXPECT_EQ(Lines(libarchive), Lines(run));
    }
#endif
  }

  std::vector<size_t> headers;
  for (size_t at = 0; at + 512 <= tar.size(); at += 512) {
    if (tar.compare(at + 257, 5, "ustar") == 0) headers.push_back(at);
  }
  std::mt19937_64 random(0x5eed);
  for (int round = 0; round < Rounds("EV_DAMAGE_ROUNDS", 200) && !HasFailure(); ++round) {
    SCOPED_TRACE("damage round " + std::to_string(round));
    const bool inTar = round % 2 == 1;
    std::string bytes = inTar ? tar : good;
    for (int damages = 1 + random() % 4; damages > 0; --damages) {
      size_t at = inTar && random() % 2 ? headers[random() % headers.size()] + random() % 512
                                        : random() % bytes.size();
      for (size_t n = random() % 3 == 0 ? 1 + random() % 16 : 1; n > 0 && at < bytes.size();
           --n, ++at) {
        bytes[at] = static_cast<char>(random() % 2 ? random() : bytes[at] ^ (1 << random() % 8));
      }
    }
    runOver(inTar ? package::GzipCompress(bytes) : bytes);
  }
}

// A package of a few MiB, twice the read ring: the reader waits for the
// extraction, and polls the abort flag, for most of the run. Every run of it
// ends, failed or complete, and the process carries on.
class FaultTest : public RunTest {
 protected:
  uint64_t BuildLarge() {
    return Build({SignedManifest(), Entry::Generated("image.bin", 8 << 20, 31),
                  Entry::Generated("config.bin", 1 << 20, 32, true),
                  Entry::File("notes.txt", "notes\n")})
        .size;
  }
};

// The destination fills up: writes fail with EFBIG past the size limit.
class FullDestination : public FaultTest, public ::testing::WithParamInterface<uint64_t> {};

TEST_P(FullDestination, FailsWithTheWritersLine) {
  BuildLarge();
  RunResult run = Limited(RLIMIT_FSIZE, GetParam(), [&] { return Run(m_package); });
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Failed to write content: " + std::to_string(EFBIG) + " "));
}

INSTANTIATE_TEST_SUITE_P(SizeLimits, FullDestination,
                         ::testing::Values(uint64_t{16} << 10, uint64_t{1} << 20));

// A flush that fails is a failed write; one the file cannot have is none.
TEST_F(FaultTest, FailedFlushFailsTheWriter) {
  Build({SignedManifest(), Entry::Generated("image.bin", 17 << 20, 33)});
  for (const int error : {EIO, EINVAL}) {
    ClearDestination();
    ev::platform::InjectFlushFailure(error);
    RunResult run = Run(m_package);
    ev::platform::InjectFlushFailure(0);
    EXPECT_EQ(run.status, error == EIO ? PKG_ERR03 : KALU_NO_ERR);
    EXPECT_EQ(run.Printed("Failed to write content: 5 16777216\n"), error == EIO);
  }
}

// The source fails after so many bytes: a share of the package's size and
// an offset from it. Reads go in 32 KiB units: short of the last unit data
// is missing, and past the read that finds the end of the file nothing fails.
struct ReadBudget {
  const char* name;
  double share;
  int64_t offset;
};

class FailingReads : public FaultTest, public ::testing::WithParamInterface<ReadBudget> {};

TEST_P(FailingReads, FailTheRunUnlessPastTheEnd) {
  const int64_t size = static_cast<int64_t>(BuildLarge());
  const int64_t budget = static_cast<int64_t>(GetParam().share * size) + GetParam().offset;
  ev::platform::InjectReadFailureAfter(budget);
  RunResult run = Run(m_package);
  ev::platform::InjectReadFailureAfter(-1);
  if (budget + (64 << 10) <= size) {
    EXPECT_EQ(run.status, PKG_ERR03);
    EXPECT_TRUE(run.Printed("Failed to read contents\n"));
    EXPECT_TRUE(run.Logged("23:copyWithHash:Failed to read contents "));
  } else if (budget >= size + (64 << 10)) {
    EXPECT_EQ(run.status, KALU_NO_ERR);
  }
}

// clang-format off
const ReadBudget kBudgets[] = {
    {"none", 0, 0}, {"one_byte", 0, 1}, {"one_read", 0, 32768}, {"half", 0.5, 0},
    {"all_but_64_KiB", 1, -(64 << 10)}, {"all_but_one_byte", 1, -1}, {"past_the_end", 1, 64 << 10}};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Budgets, FailingReads, ::testing::ValuesIn(kBudgets),
                         [](const auto& info) { return std::string(info.param.name); });

// A few hundred bytes whose GNU sparse entry inflates to 1 TiB of zeros:
// after the manifest its size is refused before a byte is written; before
// it the walk stops once the destination is full, or at once on an abort
// that comes after the whole package has been read.
class Bombs : public RunTest, public ::testing::WithParamInterface<int> {};

TEST_P(Bombs, EndWithoutFillingTheDisk) {
  const char* ends[] = {
      "Error: entry bomb refused: declared size 1099511627776 differs from the signed size 512\n",
      "Failed to write content: 27 ", "Extraction Interrupted.\n"};
  const bool manifestFirst = GetParam() == 0, abort = GetParam() == 2;
  std::vector<Entry> bomb = {Entry::File("bomb", std::string(512, 'z')), SignedManifest()};
  if (manifestFirst) std::swap(bomb[0], bomb[1]);
  testsupport::PackageOptions sparse;
  sparse.editTar = [](std::string* tar) {
    ASSERT_TRUE(package::MakeTarEntrySparse(tar, "bomb", uint64_t{1} << 40));
  };
  const std::string path = Build(bomb, sparse).path;
  auto aborted = std::chrono::steady_clock::now();
  RunOptions options;
  options.bound = std::chrono::seconds(20);
  options.duringRun = [&] {
    uint64_t read = 0, size = 0;
    while (abort &&
           !(GetExtractionProgress(&read, &size) && read == size &&
             testsupport::FileExists(Out("bomb"))) &&
           std::chrono::steady_clock::now() - aborted < std::chrono::seconds(10)) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    aborted = std::chrono::steady_clock::now();
    if (abort) AbortExtraction();
  };
  RunResult run = Limited(RLIMIT_FSIZE, abort ? uint64_t{256} << 20 : uint64_t{1} << 20,
                          [&] { return Run(path, options); });
  EXPECT_EQ(run.status, manifestFirst ? SIGN_ERR02 : PKG_ERR03);
  EXPECT_TRUE(run.Printed(ends[GetParam()]));
  EXPECT_TRUE(!abort || std::chrono::steady_clock::now() - aborted < std::chrono::seconds(1));
  EXPECT_FALSE(abort && run.Printed("Failed to write content"));
  EXPECT_EQ(testsupport::FileExists(Out("bomb")), !manifestFirst);
}

std::string BombName(const ::testing::TestParamInfo<int>& info) {
  const char* names[] = {"after_the_manifest", "before_the_manifest", "aborted"};
  return names[info.param];
}

INSTANTIATE_TEST_SUITE_P(SparseEntry, Bombs, ::testing::Values(0, 1, 2), BombName);

// Gigabytes of zeros in gzip members after the archive: the inflating
// reader goes on to check their trailers once libarchive is done, and an
// abort ends that too.
TEST_F(FaultTest, BombsInTheGzipTailEndOnAnAbort) {
  if (!EV_HAVE_ISAL) GTEST_SKIP() << "libarchive does not read past the archive";
  const uint64_t archive = BuildLarge();
  const std::string zeros = package::GzipCompress(std::string(64 << 20, '\0'));
  std::string bomb = testsupport::ReadFile(m_package);
  for (int i = 0; i < 64; ++i) bomb += zeros;
  testsupport::WriteFile(m_package, bomb);
  auto aborted = std::chrono::steady_clock::now();
  RunOptions inTail;
  inTail.duringRun = [&] {
    uint64_t read = 0, size = 0;
    while (!(GetExtractionProgress(&read, &size) && read > archive + (1 << 20))) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    aborted = std::chrono::steady_clock::now();
    AbortExtraction();
  };
  EXPECT_EQ(Run(m_package, inTail).status, PKG_ERR03);
  EXPECT_LT(std::chrono::steady_clock::now() - aborted, std::chrono::seconds(1));
}

// An abort at a moment within about how long an undisturbed run takes, one
// seeded by each round.
class AbortTiming : public FaultTest, public ::testing::WithParamInterface<int> {};

TEST_P(AbortTiming, EndsTheRunFailedOrComplete) {
  BuildLarge();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(Run(m_package).status, KALU_NO_ERR);
  std::mt19937_64 random(GetParam());
  const auto moment = (std::chrono::steady_clock::now() - start) * int(random() % 121) / 100;
  ClearDestination();
  RunOptions abort;
  abort.duringRun = [moment] {
    std::this_thread::sleep_for(moment);
    AbortExtraction();
  };
  const _KALU_Error status = Run(m_package, abort).status;
  EXPECT_TRUE(status == KALU_NO_ERR || status == PKG_ERR03) << status;
}

INSTANTIATE_TEST_SUITE_P(Rounds, AbortTiming, ::testing::Range(0, Rounds("EV_ABORT_ROUNDS", 12)));

// Bytes the allocator has handed out and not had back, mapped blocks (the
// rings) included. Resident memory would also count what an emulator keeps
// for the threads it has run.
uint64_t HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Each run also leaves no descriptor or thread behind (the fixture's check).
TEST_F(RunTest, ConsecutiveRunsLeaveNoMemoryBehind) {
  const std::string path =
      Build({SignedManifest(), Entry::Generated("a.bin", 100000, 1), Entry::File("b", "b\n")}).path;
  const int runs = Rounds("EV_LOAD_RUNS", 200);
  uint64_t heap = 0;
  for (int i = 0; i < runs; ++i) {
    if (i == std::min(20, runs / 2)) heap = HeapBytes();  // after a warm-up
    ClearDestination();
    ASSERT_EQ(Run(path).status, KALU_NO_ERR) << "run " << i;
  }
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
    const std::string name = "f" + std::to_string(100000 + i).substr(1);  // sorts as it counts
    entries.push_back(Entry::Generated(name, 64 + i % 512, static_cast<uint64_t>(i)));
  }
  return entries;
}

// Every file holds two threads until the end of the archive; a run that
// cannot get descriptors or address space fails.
TEST_F(RunTest, ManyFilesInFlightAreWrittenWholeOrFailForWantOfResources) {
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
  const uint64_t space = pages * sysconf(_SC_PAGESIZE) + (uint64_t{3} << 30);
  run = kNarrowAddressSpace ? Run(path) : Limited(RLIMIT_AS, space, [&] { return Run(path); });
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("THashAndWriteBuffer object is failed to create \n") ||
              run.Printed("Thread failed to create - "));
#endif
}

// One file past 4 GiB by a few chunks and a short tail, so that the last
// write is a plain one at an offset above 32 bits: sizes, offsets and byte
// counts are 64-bit all the way. Minutes and about 7 GB of disk, so only
// with EV_LONG_TESTS=1 in the environment.
TEST_F(RunTest, FileLargerThanFourGiBIsWrittenWholeAndVerified) {
  if (std::getenv("EV_LONG_TESTS") == nullptr) GTEST_SKIP() << "set EV_LONG_TESTS=1 to run";
  const uint64_t size = (uint64_t{4} << 30) + 3 * 32768 + 123;
  const Entry image = Entry::Generated("image.bin", size, 0x4b1d, true);
  // The data is streamed, never held: the manifest is made from its digest.
  const std::string digest = package::EntrySha256(image);
  m_manifestText = package::ManifestText({{"Version Number", "4.0"}}, {{image.name, digest, size}});
  m_expected = {{image.name, digest}};
  package::WritePackage(m_package,
                        {Entry::File("Version.der", m_signer.Sign(m_manifestText)), image});
  RunOptions patient;
  patient.bound = std::chrono::seconds(3000);
  RunResult run = Run(m_package, patient);
  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_EQ(run.bytesRead, std::filesystem::file_size(m_package));
  EXPECT_EQ(std::filesystem::file_size(Out(image.name)), size);
  EXPECT_EQ(g_objKALU_Version_TPN->m_vecFileInfo.at(0).ullFileSize, size);
}

}  // namespace
}  // namespace runtest
