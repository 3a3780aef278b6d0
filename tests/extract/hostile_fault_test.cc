// Faults around a run: the destination filling up, the source failing part
// way, and an abort requested at arbitrary moments. The process must live on,
// every run must end, and a run either fails or leaves a complete, verified
// destination.
//
// EV_ABORT_ROUNDS sets the number of aborted runs (default 30).
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <thread>

#include "extract_verify.h"
#include "testing/seams.h"
#include "tests/extract/hostile_run.h"

namespace runtest {
namespace {

using package::Entry;
using testsupport::SignedManifest;

// A file size limit for the whole process, with the signal that exceeding it
// raises ignored, so that writes past it fail with EFBIG; both are restored
// at the end.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(uint64_t bytes)
      : m_savedHandler(signal(SIGXFSZ, SIG_IGN)), m_limit(RLIMIT_FSIZE, bytes) {}
  ~FileSizeLimit() { signal(SIGXFSZ, m_savedHandler); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  sighandler_t m_savedHandler;
  ProcessLimit m_limit;  // ends first, before the signal is restored
};

class FaultTest : public HostileRunTest {
 protected:
  // A package of a few MiB, twice the read ring: the reader waits for the
  // extraction, and polls the abort flag, for most of the run.
  FaultTest()
      : m_entries({SignedManifest(), Entry::Generated("image.bin", 8 << 20, 31),
                   Entry::Generated("config.bin", 1 << 20, 32, true),
                   Entry::File("notes.txt", "notes\n")}),
        m_package(Build(m_entries)),
        m_digests(ManifestDigests(m_entries)) {}

  std::vector<Entry> m_entries;
  testsupport::BuiltPackage m_package;
  Digests m_digests;
};

TEST_F(FaultTest, DestinationFillingUpFailsTheRunWithAPackageError) {
  for (uint64_t limit : {uint64_t{16} << 10, uint64_t{1} << 20}) {
    ClearDestination();
    RunResult run;
    {
      FileSizeLimit full(limit);
      run = BoundedRun(m_package.path);
    }
    const std::string context = "file size limit " + std::to_string(limit);
    EXPECT_EQ(run.status, PKG_ERR03) << context;
    EXPECT_TRUE(run.Printed("Failed to write content: " + std::to_string(EFBIG) + " ")) << context;
    ExpectSafeOutcome(run, m_digests, m_package.manifestText, context);
  }
  // The process and the library carry on as before.
  ClearDestination();
  RunResult after = BoundedRun(m_package.path);
  EXPECT_EQ(after.status, KALU_NO_ERR);
  ExpectSafeOutcome(after, m_digests, m_package.manifestText, "after the limit");
}

TEST_F(FaultTest, SourceFailingPartWayFailsTheRunWithAPackageError) {
  const uint64_t size = m_package.size;
  for (uint64_t budget : {uint64_t{0}, uint64_t{1}, uint64_t{32767}, uint64_t{32768},
                          uint64_t{5} << 15, size / 3, size / 2, size - (64 << 10), size - 1,
                          size, size + (64 << 10)}) {
    const std::string context = "reads failing after " + std::to_string(budget);
    ClearDestination();
    platform::InjectReadFailureAfter(static_cast<int64_t>(budget));
    RunResult run = BoundedRun(m_package.path);
    platform::InjectReadFailureAfter(-1);

    // Reads go in 32 KiB units: short of the last unit data is missing, and
    // past the read that finds the end of the file nothing fails.
    if (budget + (64 << 10) <= size) {
      EXPECT_EQ(run.status, PKG_ERR03) << context;
      EXPECT_TRUE(run.Printed("Failed to read contents\n")) << context;
    } else if (budget >= size + (64 << 10)) {
      EXPECT_EQ(run.status, KALU_NO_ERR) << context;
    }
    ExpectSafeOutcome(run, m_digests, m_package.manifestText, context);
  }
}

// A package of a few hundred bytes whose GNU sparse entry inflates to 1 TiB
// of zeros. After the manifest its size is refused before a byte is written;
// before it, the walk stops once the destination is full, or at once when an
// abort comes after the whole package has been read.
TEST_F(FaultTest, SparseEntryOfATebibyteIsRefusedOrStopsSoon) {
  const uint64_t tebibyte = uint64_t{1} << 40;
  struct Case {
    bool manifestFirst, abort;
    _KALU_Error status;
    std::string printed;
  } cases[] = {
      {true, false, SIGN_ERR02,
       "Error: entry bomb refused: declared size 1099511627776 differs from the signed size "
       "512\n"},
      {false, false, PKG_ERR03, "Failed to write content: " + std::to_string(EFBIG) + " "},
      {false, true, PKG_ERR03, "Extraction Interrupted.\n"}};
  for (const Case& c : cases) {
    const Entry bomb = Entry::File("bomb", std::string(512, 'z'));
    std::vector<Entry> entries = {bomb, SignedManifest()};
    if (c.manifestFirst) std::swap(entries[0], entries[1]);
    auto package = Build(entries);
    std::string tar = Gunzip(testsupport::ReadFile(package.path));
    ASSERT_TRUE(package::MakeTarEntrySparse(&tar, "bomb", tebibyte));
    testsupport::WriteFile(package.path, package::GzipCompress(tar));
    ClearDestination();
    std::chrono::steady_clock::time_point aborted;
    RunResult run;
    {
      FileSizeLimit full(c.abort ? uint64_t{256} << 20 : uint64_t{1} << 20);
      run = BoundedRun(package.path, nullptr, false, [&] {
        uint64_t read = 0, size = 0;
        while (c.abort && !(GetExtractionProgress(&read, &size) && read == size &&
                            testsupport::FileExists(Out("bomb")))) {
          std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        aborted = std::chrono::steady_clock::now();
        if (c.abort) AbortExtraction();
      }, std::chrono::seconds(20));
    }
    const std::string context = c.printed;
    EXPECT_EQ(run.status, c.status) << context;
    EXPECT_TRUE(run.Printed(c.printed)) << context;
    if (c.abort) {
      EXPECT_LT(std::chrono::steady_clock::now() - aborted, std::chrono::seconds(1));
      EXPECT_FALSE(run.Printed("Failed to write content"));
    }
    EXPECT_EQ(testsupport::FileExists(Out("bomb")), !c.manifestFirst) << context;
    ExpectSafeOutcome(run, {}, package.manifestText, context);
  }
}

// A directory opens like a file but fails its first read.
TEST_F(FaultTest, SourceThatIsADirectoryFailsItsFirstRead) {
  RunResult run = BoundedRun(m_sentinel);

  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Failed to read contents\n"));
  ExpectSafeOutcome(run, m_digests, m_package.manifestText, "directory as source");
}

TEST_F(FaultTest, AbortAtAnyMomentEndsTheRunFailedOrComplete) {
  // The reader polls the flag until it has read the package: how long that
  // takes in an undisturbed run sets the range of the moments, a little
  // beyond it.
  std::chrono::microseconds reading{0};
  RunResult undisturbed = BoundedRun(m_package.path, nullptr, false, [&] {
    const auto start = std::chrono::steady_clock::now();
    uint64_t read = 0;
    uint64_t size = 0;
    while (!(GetExtractionProgress(&read, &size) && read == size) &&
           std::chrono::steady_clock::now() - start < std::chrono::seconds(60)) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    reading = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
  });
  ASSERT_EQ(undisturbed.status, KALU_NO_ERR);

  const int rounds = RoundsFromEnvironment("EV_ABORT_ROUNDS", 30);
  std::mt19937_64 random(0xab047);
  std::map<_KALU_Error, int> outcomes;
  for (int round = 0; round < rounds; ++round) {
    const auto moment = std::chrono::microseconds(
        static_cast<int64_t>(random() % static_cast<uint64_t>(reading.count() * 5 / 4 + 1)));
    ClearDestination();
    RunResult run = BoundedRun(m_package.path, nullptr, false, [moment] {
      std::this_thread::sleep_for(moment);
      AbortExtraction();
    });
    const std::string context = "abort after " + std::to_string(moment.count()) + " us";
    EXPECT_TRUE(run.status == KALU_NO_ERR || run.status == PKG_ERR03)
        << context << ": " << run.status;
    ExpectSafeOutcome(run, m_digests, m_package.manifestText, context);
    ++outcomes[run.status];
  }
  printf("aborted runs: %d ended failed, %d complete\n", outcomes[PKG_ERR03],
         outcomes[KALU_NO_ERR]);
}

}  // namespace
}  // namespace runtest
