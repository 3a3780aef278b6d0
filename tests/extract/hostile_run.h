// Fixture of the runs over hostile packages and under injected faults.
//
// Every run is bounded: BoundedRun() performs the run on a worker thread (as
// the end-to-end fixture does) and, should it not return within the bound,
// reports it on standard error and aborts the process, since a hung run
// cannot be taken back. After a run ExpectSafeOutcome() checks what must hold
// whatever the package held:
//   - nothing was written outside the destination: a sentinel directory
//     beside it stays empty and the test directory keeps its entries;
//   - the destination holds only regular files and directories (no link,
//     FIFO or device was made);
//   - a run that reports success wrote exactly the files the test expects,
//     each with the digest of its signed manifest, re-read from disk.
#ifndef TESTS_EXTRACT_HOSTILE_RUN_H_
#define TESTS_EXTRACT_HOSTILE_RUN_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/extract/run_fixture.h"

namespace runtest {

// Path below the destination -> lower-case hex SHA-256 of its content.
using Digests = std::map<std::string, std::string>;

// The digests of the regular entries of `entries`, as the signed manifest
// that BuildSignedPackage makes lists them (the manifest placeholder and
// special entries left out).
Digests ManifestDigests(const std::vector<package::Entry>& entries);

// The gzip stream `gz` inflated (the uncompressed tar of a package).
std::string Gunzip(const std::string& gz);

// A count from the environment variable `name`, or `fallback`.
int RoundsFromEnvironment(const char* name, int fallback);

// A soft resource limit of the whole process (setrlimit), restored when the
// object ends.
class ProcessLimit {
 public:
  ProcessLimit(int resource, uint64_t value);
  ~ProcessLimit();
  ProcessLimit(const ProcessLimit&) = delete;
  ProcessLimit& operator=(const ProcessLimit&) = delete;

 private:
  int m_resource;
  uint64_t m_saved;
};

class HostileRunTest : public ExtractionRunTest {
 protected:
  HostileRunTest();

  // Run() bounded by `bound`; `duringRun` runs on the test's thread while
  // the run is in progress.
  RunResult BoundedRun(const std::string& packagePath, const char* interested = nullptr,
                       bool exclude = false, const std::function<void()>& duringRun = {},
                       std::chrono::seconds bound = std::chrono::seconds(60));

  // The checks described above; `expected` lists what a successful run has
  // written (Version.inf aside, which must hold `manifestText`). `context`
  // names the case in failure messages.
  void ExpectSafeOutcome(const RunResult& run, const Digests& expected,
                         const std::string& manifestText, const std::string& context);

  std::string m_sentinel;
  std::set<std::string> m_dirBeforeRun;  // entries of the test directory
};

}  // namespace runtest

#endif  // TESTS_EXTRACT_HOSTILE_RUN_H_
