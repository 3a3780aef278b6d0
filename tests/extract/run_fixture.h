// Fixture of the end-to-end extraction runs.
//
// Each test gets a fresh directory holding the certificate file, the package,
// the destination "out" and an empty "sentinel" directory beside it. Run()
// performs one ExtractWithHash on a worker thread with standard output and
// the log captured, and aborts the process should the run outlive its bound
// (a hung run cannot be taken back). With `stall`, the run's certificate file
// is a FIFO: the extract thread blocks opening it at Version.der while the
// source reader fills the read ring (or reads a smaller package to its end);
// then `duringRun` runs and the certificate is fed in, so what follows
// happens with the reader blocked or done, deterministically.
//
// After every run the fixture checks what must hold whatever the package
// held: no descriptor or thread left behind; nothing written outside the
// destination; only regular files and directories in it; the error report
// and the "Error No" line name a failing status and are absent on success;
// a successful run wrote only files of the last built manifest, each with
// its signed digest (m_expected), and Version.inf holds the signed text.
// Each test holds the cross-process ErrorReportLock for its whole life.
#ifndef TESTS_EXTRACT_RUN_FIXTURE_H_
#define TESTS_EXTRACT_RUN_FIXTURE_H_

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "extract_verify/extract_verify.h"
#include "tests/testsupport/report_lock.h"
#include "tests/testsupport/signed_package.h"
#include "tests/testsupport/temp_dir.h"

namespace runtest {

extern const char kErrorReportPath[];
const uint64_t kLargePackageBytes = uint64_t{24} << 20;  // far more than the 4 MiB read ring

struct RunResult {
  _KALU_Error status = KALU_ERR;
  std::string output;
  std::vector<std::string> logs;  // "level:function:text"
  bool stalled = false;  // the ring filled (or the package was read) while the run was blocked
  EV_ExtractionStage stalledStage = EXTRACTION_STAGE_IDLE;  // then
  uint64_t bytesRead = 0;                                   // of the package, at the end of the run
  uint64_t packageSize = 0;
  std::string threadName;  // of the thread that called ExtractWithHash, afterwards

  bool Printed(const std::string& text) const { return output.find(text) != std::string::npos; }
  bool Logged(const std::string& line) const;
};

struct RunOptions {
  const char* interested = nullptr;
  bool exclude = false;
  bool stall = false;
  std::function<void()> duringRun = nullptr;  // on the test's thread
  std::chrono::seconds bound{60};
};

// The members are public: the case tables of the suites reach them.
class RunTest : public ::testing::Test {
 public:
  RunTest();
  ~RunTest() override;

  // Builds the package and takes its manifest as what a successful run writes.
  testsupport::BuiltPackage Build(std::vector<package::Entry> entries,
                                  const testsupport::PackageOptions& options = {});
  RunResult Run(const std::string& packagePath, const RunOptions& options = {});
  void ClearDestination();
  std::string Out(const std::string& name) const { return m_dest + "/" + name; }

  testsupport::ErrorReportLock m_reportLock;  // first: held until the end
  testsupport::TempDir m_dir;
  std::string m_package = m_dir.file("package.tar.gz");  // where Build writes
  std::string m_dest = m_dir.file("out");
  std::string m_sentinel = m_dir.file("sentinel");
  testsupport::TestSigner m_signer{m_dir.file("ca.pem")};
  std::map<std::string, std::string> m_expected;  // path below the destination -> digest
  std::string m_manifestText;
  std::set<std::string> m_planted;  // links the test placed in the destination itself

 private:
  void ExpectSafeOutcome(const RunResult& run, const std::set<std::string>& dirBefore);
};

// The entries of `directory`, "." and ".." aside (0 when it cannot be read).
size_t CountEntries(const char* directory);

}  // namespace runtest

#endif  // TESTS_EXTRACT_RUN_FIXTURE_H_
