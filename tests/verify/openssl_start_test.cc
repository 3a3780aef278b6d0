// OpenSSL reads its configuration at most once per process, on first use, so
// this test has a program of its own: the library's call is the first.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "status/kalu_status.h"
#include "support/hash.h"
#include "tests/verify/signing_fixture.h"
#include "verify/unsign.h"

namespace {

// Leaves OpenSSL only the null provider, which has no algorithms: a process
// that reads it can neither make keys nor check a signature.
const char kNullProviderOnly[] =
    "openssl_conf = init\n[init]\nproviders = providers\n"
    "[providers]\nnull = null\n[null]\nactivate = 1\n";

class OpenSslStartTest : public verifytest::SigningTest {};

TEST_F(OpenSslStartTest, ConfigurationNamedInTheEnvironmentIsNotRead) {
  const std::string conf = dir.file("openssl.cnf");
  testsupport::WriteFile(conf, kNullProviderOnly);
  setenv("OPENSSL_CONF", conf.c_str(), 1);
  std::unique_ptr<IHash> first(makeHash("sha256"));

  verifytest::Chain chain;
  const std::vector<unsigned char> der = pki::SignPkcs7Der(verifytest::kManifest, chain.signer);
  const std::string manifest = dir.file("Version.inf");
  testsupport::OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, EV_Unsign_using_date(manifest.c_str(), TrustChain(chain).c_str(),
                                              der.data(), static_cast<int>(der.size())));
  out.Finish();
  EXPECT_EQ(verifytest::kManifest, testsupport::ReadFile(manifest));
}

}  // namespace
