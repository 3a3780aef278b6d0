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

#include <string>
#include <vector>

#include "tests/testsupport/report_lock.h"
#include "tests/testsupport/temp_dir.h"
#include "tools/pki/pki.h"

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
  // environment.
  ToolRun Run(const std::vector<std::string>& args, const std::vector<std::string>& env = {});

  // Writes an input file into the test's "in" directory; returns its path.
  std::string Input(const std::string& name, const std::string& contents);
  // Packs `files` into `package` with the fixture's signer; expects success.
  void Pack(const std::string& package, const std::vector<std::string>& files,
            const std::vector<std::string>& settings = {});
  // PKCS#7 signed data over `content` by the fixture's signer.
  std::string Sign(const std::string& content) const;

  std::string Path(const std::string& name) const { return m_dir.file(name); }
  const std::string& trust() const { return m_trust; }

  testsupport::ErrorReportLock m_reportLock;  // first: held until the end
  testsupport::TempDir m_dir;
  pki::Identity m_root;
  pki::Identity m_signer;
  std::string m_trust;
  std::string m_signerCert;
  std::string m_signerKey;
};

// The text of a file, or "" when it cannot be read.
std::string ReadIfExists(const std::string& path);

}  // namespace tooltest

#endif  // TESTS_TOOLS_TOOL_FIXTURE_H_
