// inspect, and the sentences every verifying command gives for unusable
// inputs and failed signatures, run through the built tool.
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/tools/tool_fixture.h"
#include "tools/package/package_writer.h"

namespace tooltest {
namespace {

TEST_F(ToolTest, InspectReportsTheSignerManifestAndEveryEntryAsJson) {
  Pack(Path("pkg.tar.gz"), {Input("a.bin", "a\n"), Input("b.txt", "bee\n")},
       {"Torvan Part Number=TP-7"});
  // East of UTC: the check is still made in UTC unless asked otherwise.
  ToolRun run = Run({"inspect", "--json", "--cert", trust(), Path("pkg.tar.gz")}, {"TZ=JST-9"});
  ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
  const nlohmann::json report = nlohmann::json::parse(run.out);
  EXPECT_EQ(report["result"], "OK");
  EXPECT_EQ(report["timeZone"], "UTC");
  EXPECT_EQ(report["signature"]["signer"]["subject"], "/CN=Test Signer");
  EXPECT_EQ(report["signature"]["signer"]["notBefore"], "2021-06-01 00:00:00 UTC");
  EXPECT_EQ(report["manifest"]["header"]["Torvan Part Number"], "TP-7");
  EXPECT_EQ(report["manifest"]["files"][1]["sha256"], package::Sha256Hex("bee\n"));

  run = Run({"inspect", "--local-time", "--cert", trust(), Path("pkg.tar.gz")}, {"TZ=JST-9"});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.OutHas("Signature: NOT verified (checked in local time (TZ=JST-9))"));
  EXPECT_TRUE(run.OutHas("is not valid at 2021-05-31 15:00:00 UTC")) << run.out;
}

struct Tampering {
  const char* what;
  std::vector<std::pair<std::string, std::string>> stored;  // listed: a.bin "aaaa", b.bin "b"
  const char* finding;
};

TEST_F(ToolTest, InspectFailsEveryPackageTheExtractorWouldRefuse) {
  const std::vector<Tampering> cases = {
      {"same size, other bytes", {{"a.bin", "aaab"}, {"b.bin", "b"}}, "a.bin: SHA-256 "},
      {"other size", {{"a.bin", "aaaaa"}, {"b.bin", "b"}}, "a.bin: 5 bytes in the archive, 4"},
      {"unlisted entry",
       {{"a.bin", "aaaa"}, {"b.bin", "b"}, {"c.bin", "c"}},
       "(the extractor fails with SIGN_ERR02):\n  c.bin\n"},
      {"listed file missing", {{"a.bin", "aaaa"}}, "missing from the archive:\n  b.bin\n"},
      {"dot dot", {{"a.bin", "aaaa"}, {"x..y", "b"}, {"b.bin", "b"}}, "x..y: name contains"},
      {"empty entry", {{"a.bin", "aaaa"}, {"e", ""}, {"b.bin", "b"}}, "e: empty"},
  };
  for (const Tampering& tampering : cases) {
    SCOPED_TRACE(tampering.what);
    WriteHostilePackage(Path("bad.tar.gz"), {{"a.bin", "aaaa"}, {"b.bin", "b"}}, tampering.stored);
    ToolRun run = Run({"inspect", "--cert", trust(), Path("bad.tar.gz")});
    EXPECT_EQ(run.exitStatus, 1);
    for (const char* line : {"Signature: verified", tampering.finding, "Result: FAILED\n"}) {
      EXPECT_TRUE(run.OutHas(line)) << line << run.out;
    }
  }
}

struct BadInput {
  std::vector<std::string> args;
  std::string sentence;
};

TEST_F(ToolTest, UnusableInputsAndFailedSignaturesAreOneSentenceNamingTheCause) {
  Pack(Path("pkg.tar.gz"), {Input("a.bin", "a\n")});
  pki::Identity stranger =
      pki::MakeRootCa("Stranger", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  pki::WriteCertificatesPem(Path("stranger.pem"), {stranger.cert.get()});
  // The fixture's signer re-issued for code signing only.
  pki::Cert coder(X509_dup(m_signer.cert.get()));
  testsupport::SetExtendedKeyUsage(coder.get(), "codeSigning", m_root.key.get());
  pki::WriteCertificatesPem(Path("coder.pem"), {coder.get()});
  FILE* file = fopen(Path("locked.key").c_str(), "w");
  PEM_write_PKCS8PrivateKey(file, m_signer.key.get(), EVP_aes_256_cbc(), nullptr, 0, nullptr,
                            const_cast<char*>("secret"));
  fclose(file);
  testsupport::WriteFile(Path("pass.txt"), "wrong\n");
  const std::vector<std::string> pack = {"pack", "--out", Path("new.tar.gz"), Input("f", "f")};
  auto packWith = [&](std::vector<std::string> more) {
    more.insert(more.begin(), pack.begin(), pack.end());
    return more;
  };
  const std::vector<BadInput> cases = {
      {{"inspect", "--cert", Path("none.pem"), Path("pkg.tar.gz")},
       "cannot read the certificate file " + Path("none.pem") + ": No such file"},
      {{"extract", "--cert", trust(), Path("none.tar.gz"), Path("out")},
       "cannot read the package " + Path("none.tar.gz") + ": No such file"},
      {{"inspect", "--cert", m_signerKey, Path("pkg.tar.gz")},
       "the certificate file " + m_signerKey + " holds no PEM certificate"},
      {packWith({"--key", m_signerCert, "--cert", m_signerCert}),
       m_signerCert + " holds a certificate, not a private key"},
      {packWith({"--key", Path("locked.key"), "--cert", m_signerCert}),
       "the key in " + Path("locked.key") + " is encrypted; give its pass phrase with --pass"},
      {packWith({"--key", Path("locked.key"), "--pass", "file:" + Path("pass.txt"), "--cert",
                 m_signerCert}),
       "the pass phrase does not decrypt the key in " + Path("locked.key")},
      {packWith({"--key", m_signerKey, "--cert", Path("coder.pem")}),
       "its extended key usage lacks emailProtection"},
      {packWith({"--key", m_signerKey, "--cert", m_signerCert, "--trust", Path("stranger.pem")}),
       "the package does not verify against " + Path("stranger.pem") +
           ": the signer /CN=Test Signer does not lead to a certificate in"},
      {{"extract", "--quiet", "--cert", Path("stranger.pem"), Path("pkg.tar.gz"), Path("out")},
       "does not lead to a certificate in " + Path("stranger.pem") + " (untrusted anchor)"},
  };
  for (const BadInput& bad : cases) {
    ToolRun run = Run(bad.args, {"PASS=secret"});
    SCOPED_TRACE(bad.sentence);
    EXPECT_EQ(run.exitStatus, 1) << run.err;
    EXPECT_TRUE(run.ErrHas(bad.sentence) && !run.ErrHas("routines::")) << run.err;
    EXPECT_FALSE(testsupport::FileExists(Path("new.tar.gz")));
  }
  // The encrypted key signs with the right pass phrase.
  ToolRun unlocked = Run(packWith({"--key", Path("locked.key"), "--pass", "env:PASS", "--cert",
                                   m_signerCert, "--trust", trust()}),
                         {"PASS=secret"});
  EXPECT_EQ(unlocked.exitStatus, 0) << unlocked.err;
}

}  // namespace
}  // namespace tooltest
