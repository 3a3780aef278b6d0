#include "verify/verify_by_date.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

#include "status/kalu_status.h"
#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"
#include "tests/verify/signing_fixture.h"

namespace {

using testsupport::FileExists;
using testsupport::LogCapture;
using testsupport::OutputCapture;
using testsupport::ReadFile;
using testsupport::WriteFile;
using verifytest::Chain;
using verifytest::kManifest;
using Der = std::vector<unsigned char>;

class VerifyByDateTest : public verifytest::SigningTest {
 protected:
  VerifyByDateTest() : der(dir.file("Version.der")), manifest(dir.file("Version.inf")) {}

  unsigned int Verify(const std::string& derPath, const std::string& trust, const Der& bytes) {
    return openSSL_VerifyBasedOnDate(derPath.c_str(), trust.c_str(), bytes.data(),
                                     static_cast<int>(bytes.size()));
  }
  std::string RemoveFailed(const std::string& path) {
    return "Remove Failed -" + path + " / Err: " + std::to_string(ENOENT);
  }

  std::string der;
  std::string manifest;
};

TEST_F(VerifyByDateTest, ExpiredSignerValidAtBuiltInTimeWritesManifestBesideDer) {
  Chain chain;
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, Verify(der, TrustChain(chain), pki::SignPkcs7Der(kManifest, chain.signer)));
  EXPECT_EQ(RemoveFailed(manifest), out.Finish());
  EXPECT_EQ(kManifest, ReadFile(manifest));
  EXPECT_EQ((std::vector<std::string>{"23:+", "31:" + RemoveFailed(manifest) + " ", "23:-"}),
            log.Levelled("openSSL_VerifyBasedOnDate"));
}

TEST_F(VerifyByDateTest, SignerValidOnlyAfterBuiltInTimeFailsWithTheLibrarysCode) {
  Chain chain(pki::UtcTime(2015, 4, 7, 17, 15, 7));
  const std::string trust = TrustChain(chain);
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(SIGN_ERR01, Verify(der, trust, pki::SignPkcs7Der(kManifest, chain.signer)));
  const std::string printed = out.Finish();
  const size_t at = printed.find("Error= ");
  ASSERT_NE(std::string::npos, at) << printed;
  const unsigned long code = std::stoul(printed.substr(at + 7));
  char details[256];
  ERR_error_string_n(code, details, sizeof(details));
  EXPECT_EQ(RemoveFailed(manifest) + "Verification Failure. Error= " + std::to_string(code) +
                "\nError details=" + details + "\nVerification failed on given DerFile:" + der +
                ", CertFile:" + trust + " \n",
            printed);
  const std::vector<std::string> logged = log.Levelled("openSSL_VerifyBasedOnDate");
  ASSERT_EQ(4u, logged.size());
  EXPECT_EQ("23:Verification failed on given DerFile:" + der + ", CertFile:" + trust, logged[2]);
}

// The certificates carried in the structure do not help: the chain must be
// built from the certificate file alone, which may anchor it at any level.
TEST_F(VerifyByDateTest, ChainIsBuiltFromTheCertificateFileAloneAndTheContentIsChecked) {
  Chain chain, stranger;
  const Der carrying = pki::SignPkcs7Der(kManifest, chain.signer,
                                         {chain.signer.cert.get(), chain.intermediate.cert.get()});
  OutputCapture out;
  EXPECT_EQ(SIGN_ERR01, Verify(der, TrustFile({stranger.root.cert.get()}), carrying));
  EXPECT_EQ(SIGN_ERR01, Verify(der, TrustFile({chain.root.cert.get()}), carrying));
  EXPECT_EQ(KALU_NO_ERR, Verify(der, TrustFile({chain.intermediate.cert.get()}), carrying));
  EXPECT_EQ(KALU_NO_ERR, Verify(der, TrustFile({chain.signer.cert.get()}),
                                pki::SignPkcs7Der(kManifest, chain.signer)));

  Der tampered = pki::SignPkcs7Der(kManifest, chain.signer);
  const std::string marker = "PartNumber=4711";
  auto at = std::search(tampered.begin(), tampered.end(), marker.begin(), marker.end());
  ASSERT_NE(tampered.end(), at);
  at[marker.size() - 1] = '2';
  EXPECT_EQ(SIGN_ERR01, Verify(der, TrustChain(chain), tampered));
}

TEST_F(VerifyByDateTest, UnusableInputsAreReported) {
  Chain chain;
  const std::string trust = TrustFile({chain.root.cert.get()});
  const std::string notPem = dir.file("not.pem"), missing = dir.file("missing.pem");
  WriteFile(notPem, "-----BEGIN NONSENSE-----\n");
  const Der garbage(64, 0x30), good = pki::SignPkcs7Der(kManifest, chain.signer);
  struct Case {
    const Der* bytes;
    std::string trust, printed, logged;
  } cases[] = {
      {nullptr, trust, "ERR: File open failed\n", "31:ERR: File open failed"},
      {&garbage, trust, "ERR: Extracing PKCS7 failed\n", "31:ERR: Extracing PKCS7 failed"},
      {&good, notPem, "Error loading file " + notPem + "\nERR: Failed to create store!",
       "31:ERR: Failed to create store!"},
      {&good, missing, "Error loading file " + missing + "\nERR: Failed to create store!",
       "31:ERR: Failed to create store!"},
  };
  for (const Case& c : cases) {
    LogCapture log;
    OutputCapture out;
    EXPECT_EQ(SIGN_ERR01, openSSL_VerifyBasedOnDate(der.c_str(), c.trust.c_str(),
                                                    c.bytes ? c.bytes->data() : nullptr,
                                                    c.bytes ? static_cast<int>(c.bytes->size()) : 0));
    EXPECT_EQ(RemoveFailed(manifest) + c.printed, out.Finish());
    EXPECT_EQ(c.logged, log.Levelled("openSSL_VerifyBasedOnDate").at(2));
  }
}

TEST_F(VerifyByDateTest, OutputFileIsDeletedFirstAndAnUnwritableOneStillVerifies) {
  Chain chain;
  WriteFile(manifest, "stale");
  OutputCapture failed;
  EXPECT_EQ(SIGN_ERR01,
            Verify(der, dir.file("missing.pem"), pki::SignPkcs7Der(kManifest, chain.signer)));
  EXPECT_EQ(std::string::npos, failed.Finish().find("Remove Failed"));
  EXPECT_FALSE(FileExists(manifest));

  const std::string missingDir = dir.file("absent");
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, Verify(missingDir + "/Version.der", TrustChain(chain),
                                pki::SignPkcs7Der(kManifest, chain.signer)));
  EXPECT_EQ(RemoveFailed(missingDir + "/Version.inf") + "ERR: Failed to create output file!\n",
            out.Finish());
  EXPECT_EQ("31:ERR: Failed to create output file!",
            log.Levelled("openSSL_VerifyBasedOnDate").at(2));
  EXPECT_FALSE(FileExists(missingDir + "/Version.inf"));
}

// The manifest path is the DER path with its last three characters replaced:
// a three-character path gives "inf" in the working directory, a shorter one
// throws before anything is deleted.
TEST_F(VerifyByDateTest, ManifestPathReplacesTheLastThreeCharactersOfTheDerPath) {
  char cwd[PATH_MAX];
  ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
  ASSERT_EQ(0, chdir(dir.path().c_str()));
  Chain chain;
  const Der bytes = pki::SignPkcs7Der(kManifest, chain.signer);
  const std::string trust = TrustChain(chain);
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, Verify("abc", trust, bytes));
  EXPECT_EQ("Remove Failed -inf / Err: " + std::to_string(ENOENT), out.Finish());
  EXPECT_EQ(kManifest, ReadFile(dir.file("inf")));

  for (const char* name : {"inf", "ab", "a", "nf", "f"}) WriteFile(dir.file(name), "keep");
  OutputCapture silent;
  EXPECT_THROW(Verify("ab", trust, bytes), std::out_of_range);
  EXPECT_THROW(Verify("", trust, bytes), std::out_of_range);
  EXPECT_EQ("", silent.Finish());
  for (const char* name : {"inf", "ab", "a", "nf", "f"}) {
    EXPECT_EQ("keep", ReadFile(dir.file(name))) << name;
  }
  EXPECT_EQ(0, chdir(cwd));
}

}  // namespace
