// Fixture of the end-to-end extraction runs.
//
// Each test gets a fresh directory holding the certificate file, the package
// and the destination directory "out". Run() performs one ExtractWithHash
// with standard output and the log captured, and checks that the run left no
// descriptor and no thread behind. RunStalled() hands the run a FIFO as its
// certificate file: the extract thread blocks opening it at Version.der while
// the source reader fills the read ring and waits for a free chunk (or, for a
// package smaller than the ring, reads it to the end). Once the ring is full
// or the package read, the test's action runs and the certificate is fed in,
// so what follows happens with the reader blocked or done, deterministically.
//
// The error report file is shared by every run in the system: each test holds
// the cross-process ErrorReportLock for its whole life.
#ifndef TESTS_EXTRACT_RUN_FIXTURE_H_
#define TESTS_EXTRACT_RUN_FIXTURE_H_

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "extract_verify.h"
#include "tests/testsupport/capture.h"
#include "tests/testsupport/report_lock.h"
#include "tests/testsupport/signed_package.h"
#include "tests/testsupport/temp_dir.h"

namespace runtest {

extern const char kErrorReportPath[];
// Written into the error report before every run: a run that leaves it is
// one that did not write the report.
extern const char kReportUntouched[];
// Far larger than the 4 MiB read ring, and incompressible.
extern const uint64_t kLargePackageBytes;

struct RunResult {
  _KALU_Error status = KALU_ERR;
  std::string output;
  std::vector<testsupport::LogLine> logs;
  bool stalled = false;     // RunStalled: the ring filled (or the package was read) while blocked
  uint64_t bytesRead = 0;   // of the package, at the end of the run
  uint64_t packageSize = 0;
  std::string readerThreadName;  // of the thread that called ExtractWithHash, afterwards

  bool Printed(const std::string& text) const { return output.find(text) != std::string::npos; }
  bool Logged(int level, const std::string& function, const std::string& text) const;
};

class ExtractionRunTest : public ::testing::Test {
 protected:
  ExtractionRunTest();
  ~ExtractionRunTest() override;

  testsupport::BuiltPackage Build(std::vector<package::Entry> entries,
                                  const testsupport::PackageOptions& options = {});
  RunResult Run(const std::string& packagePath, const char* interested = nullptr,
                bool exclude = false);
  RunResult RunWith(const std::string& certFile, const std::string& packagePath,
                    const char* interested, bool exclude,
                    const std::function<void(const std::atomic<bool>& done)>& duringRun);
  RunResult RunStalled(const std::string& packagePath, const char* interested = nullptr,
                       const std::function<void()>& whileStalled = [] {});

  // Empties the destination for the next run of a loop.
  void ClearDestination();

  std::string Out(const std::string& name) const { return m_dest + "/" + name; }
  const std::string& certFile() const { return m_signer.certFile(); }
  static std::string ErrorReport();

  testsupport::ErrorReportLock m_reportLock;  // first: held until the end
  testsupport::TempDir m_dir;
  std::string m_dest;
  testsupport::TestSigner m_signer;
};

// Checks that the texts occur in `output` in the given order.
void ExpectInOrder(const std::string& output, const std::vector<std::string>& texts);

// The entries of `directory`, "." and ".." aside (0 when it cannot be read).
size_t CountEntries(const char* directory);

// A large incompressible entry.
package::Entry LargeEntry(const std::string& name);

}  // namespace runtest

#endif  // TESTS_EXTRACT_RUN_FIXTURE_H_
