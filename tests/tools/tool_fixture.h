// Fixture of the tests that run the extract-verify tool as a user does:
// as a separate process, with its exit status, standard output and
// standard error.
//
// Each test gets a fresh directory holding a signing identity made at test
// time: trust.pem (the root certificate, the trust anchor of extractions),
// signer.pem and signer.key (what `pack` signs with). The fixture holds
// the cross-process lock of the error report file for the whole test,
// since extractions run by the tool write that file.
#ifndef TESTS_TOOLS_TOOL_FIXTURE_H_
#define TESTS_TOOLS_TOOL_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/testsupport/report_lock.h"
#include "tests/testsupport/signed_package.h"
#include "tests/testsupport/temp_dir.h"

namespace tooltest {

struct ToolRun {
  int exitStatus = -1;  // -1 when the tool did not exit normally
  std::string out;
  std::string err;

  bool OutHas(const std::string& text) const { return out.find(text) != std::string::npos; }
  bool ErrHas(const std::string& text) const { return err.find(text) != std::string::npos; }
};

class ToolTest : public ::testing::Test {
 protected:
  ToolTest();

  // Runs `extract-verify args...` with standard output and standard error
  // going to files; `env` entries ("NAME=value") are added to the
  // environment; `whileRunning` is called with the process's id before it
  // is waited for.
  ToolRun Run(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
              const std::function<void(pid_t)>& whileRunning = nullptr);

  // `pack` signing with the fixture's signer, followed by `more`.
  std::vector<std::string> PackArgs(const std::vector<std::string>& more) const;
  // Writes an input file into the test's "in" directory; returns its path.
  std::string Input(const std::string& name, const std::string& contents);
  // Packs `files` into `package` with the fixture's signer; expects success.
  void Pack(const std::string& package, const std::vector<std::string>& files,
            const std::vector<std::string>& settings = {});
  // A package whose signed manifest lists `listed` (name, data) while the
  // archive holds `stored` after Version.der.
  void WriteHostilePackage(const std::string& package,
                           const std::vector<std::pair<std::string, std::string>>& listed,
                           const std::vector<std::pair<std::string, std::string>>& stored);

  std::string Path(const std::string& name) const { return m_dir.file(name); }
  const std::string& trust() const { return m_signing.certFile(); }

  testsupport::ErrorReportLock m_reportLock;  // first: held until the end
  testsupport::TempDir m_dir;
  testsupport::TestSigner m_signing;
  const pki::Identity& m_root = m_signing.root();
  const pki::Identity& m_signer = m_signing.signer();
  std::string m_signerCert = Path("signer.pem");
  std::string m_signerKey = Path("signer.key");
};

}  // namespace tooltest

#endif  // TESTS_TOOLS_TOOL_FIXTURE_H_
