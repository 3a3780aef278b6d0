// The extract-verify tool run as a user runs it: pack, resign and extract
// round trips; the inputs and outputs pack refuses; what an extraction's
// status alone does not tell (selection, completeness, unverified files,
// interruption); inspect's report and the packages it fails; the sentences
// every verifying command gives for unusable inputs and failed signatures.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "tests/tools/tool_fixture.h"
#include "tools/package/package_writer.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;

TEST_F(ToolTest, PackResignAndExtractRoundTripFilesHeaderAndSelection) {
  const std::string big = package::GenerateContent(3 << 20, 11, true);
  std::vector<std::string> files = {Input("boot.img", big), Input("notes.txt", "notes\n")};
  Pack(Path("pkg.tar.gz"), files, {"Torvan Part Number=TP-1", "Version Number=2.0=beta"});
  const pki::Validity years = {pki::UtcTime(2023, 1, 1), pki::UtcTime(2039, 1, 1)};
  pki::Identity other = pki::MakeSigner("Other", years, m_root);
  pki::WriteCertificatesPem(Path("other.pem"), {other.cert.get()});
  pki::WriteKeyPem(Path("other.key"), other.key.get());
  ToolRun run = Run({"resign", "--key", Path("other.key"), "--cert", Path("other.pem"), "--trust",
                     trust(), "--out", Path("re.tar.gz"), Path("pkg.tar.gz")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;

  run = Run({"extract", "--cert", trust(), Path("re.tar.gz"), Path("out")}, {"TZ=CET-1"});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_EQ(ReadFile(Path("out/boot.img")), big);
  const std::string header = "Torvan Part Number=TP-1\nVersion Number=2.0=beta\nFile1=boot.img\n";
  EXPECT_EQ(ReadFile(Path("out/Version.inf")).find(header), 0u);
  EXPECT_TRUE(run.OutHas("(signature checked in UTC)"));

  run = Run({"extract", "--cert", trust(), "--only", "notes.txt", "--json", Path("pkg.tar.gz"),
             Path("only")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  const nlohmann::json report = nlohmann::json::parse(run.out);
  EXPECT_EQ(report["files"], nlohmann::json::array({"notes.txt"}));
  EXPECT_EQ(report["status"], "KALU_NO_ERR");
  EXPECT_FALSE(FileExists(Path("only/boot.img")));
}

using Files = std::vector<std::pair<std::string, std::string>>;

struct Outcome {
  std::vector<std::string> options;
  Files stored;  // the manifest lists a.bin "a" and b.bin "b"
  int exitStatus;
  std::vector<std::string> errLines;
};

TEST_F(ToolTest, ExtractSaysWhatTheStatusAloneDoesNot) {
  const Files both = {{"a.bin", "a"}, {"b.bin", "b"}}, onlyA = {{"a.bin", "a"}};
  const std::string left = "unverified file(s) in " + Path("out") + ":\n";
  const std::vector<Outcome> cases = {
      {{"--only", "nothere.txt"}, both, 1, {"the package has no entry named nothere.txt"}},
      {{}, onlyA, 0, {"warning: the package lacks b.bin, listed in the signed manifest"}},
      {{"--strict"}, onlyA, 1, {"the package lacks b.bin", left + "  a.bin\n"}},
      {{"--quiet"},
       {{"a.bin", "x"}, {"b.bin", "b"}},
       1,
       {"SIGN_ERR02 (41)", "a.bin: its SHA-256 " + package::Sha256Hex("x"), "  b.bin\n"}},
  };
  for (const Outcome& outcome : cases) {
    WriteHostilePackage(Path("pkg.tar.gz"), both, outcome.stored);
    testsupport::RemoveTree(Path("out"));
    std::vector<std::string> args = {"extract", "--cert", trust()};
    args.insert(args.end(), outcome.options.begin(), outcome.options.end());
    args.insert(args.end(), {Path("pkg.tar.gz"), Path("out")});
    ToolRun run = Run(args);
    EXPECT_EQ(run.exitStatus, outcome.exitStatus) << outcome.errLines[0] << run.err;
    for (const std::string& line : outcome.errLines) EXPECT_TRUE(run.ErrHas(line)) << run.err;
  }
}

TEST_F(ToolTest, InterruptedExtractionExitsWith130) {
  const std::string der = m_signing.Sign("File1=big.bin\nFile1 Size=67108864\n");
  package::WritePackage(Path("big.tar.gz"),
                        {package::Entry::File("Version.der", der),
                         package::Entry::Generated("big.bin", uint64_t{64} << 20, 5, true)});
  auto writing = [&] { return ReadFile(Path("tool.out")).find("big.bin") != std::string::npos; };
  auto interrupt = [&](pid_t pid) {
    for (int i = 0; i < 10000 && !writing(); ++i) usleep(1000);
    kill(pid, SIGINT);
  };
  ToolRun run = Run({"extract", "--cert", trust(), Path("big.tar.gz"), Path("out")}, {}, interrupt);
  EXPECT_EQ(run.exitStatus, 130) << run.err;
  EXPECT_TRUE(run.ErrHas("unverified file(s) in " + Path("out") + ":\n  big.bin\n")) << run.err;
}

struct Refusal {
  const char* what;
  std::vector<std::string> args;  // after the signer's options
  int exitStatus;
  const char* message;
};

TEST_F(ToolTest, PackRefusesWhatTheExtractorWouldRefuseAndKeepsExistingOutput) {
  const std::string good = Input("good.bin", "good\n");
  mkdir(Path("other").c_str(), 0700);
  testsupport::WriteFile(Path("other/good.bin"), "another\n");
  testsupport::WriteFile(Path("kept.tar.gz"), "kept");
  const std::string out = Path("refused.tar.gz");
  std::vector<std::string> many = {"--out", out};
  for (int i = 0; i < 40; ++i) many.push_back(Input("long-file-name-" + std::to_string(i), "xy"));
  const std::vector<Refusal> refusals = {
      {"empty file", {"--out", out, good, Input("empty", "")}, 1, "empty"},
      {"dot dot", {"--out", out, Input("a..b", "x")}, 1, "contains \"..\""},
      {"same base name", {"--out", out, good, Path("other/good.bin")}, 1, "have the same name"},
      {"Version.der", {"--out", out, Input("Version.der", "x")}, 1, "named Version.der"},
      {"manifest too large", many, 1, "the extractor reads at most 4096"},
      {"file list key", {"--out", out, "--set", "File7 Size=1", good}, 2, "belongs to the file"},
      {"existing output", {"--out", Path("kept.tar.gz"), good}, 1, "exists; give --force"},
      {"standard output", {"--out", "-", good}, 1, "--out - is not supported"},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.what);
    ToolRun run = Run(PackArgs(refusal.args));
    EXPECT_EQ(run.exitStatus, refusal.exitStatus) << run.err;
    EXPECT_TRUE(run.ErrHas(refusal.message) && !FileExists(out)) << run.err;
  }
  EXPECT_EQ(ReadFile(Path("kept.tar.gz")), "kept");
  EXPECT_FALSE(FileExists(Path("-")));
  EXPECT_EQ(Run(PackArgs({"--force", "--out", Path("kept.tar.gz"), good})).exitStatus, 0);
  EXPECT_NE(ReadFile(Path("kept.tar.gz")), "kept");
}

TEST_F(ToolTest, UsageErrorsExitWithTwoAndVersionWithZero) {
  const std::vector<std::tuple<std::vector<std::string>, int, std::string>> runs = {
      {{}, 2, ""},
      {{"extract", "--cert", trust(), "--only", "a", "--exclude", "b", "p", "d"}, 2, ""},
      {PackArgs({"--out", Path("p.tar.gz")}), 2, ""},
      {{"--version"}, 0, "extract-verify 1.0.0 (library 1.0.0)"},
  };
  for (const auto& [args, status, out] : runs) {
    ToolRun run = Run(args);
    EXPECT_EQ(run.exitStatus, status) << run.err;
    EXPECT_TRUE(out.empty() ? run.out.empty() : run.OutHas(out)) << run.out;
  }
}

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
  const std::string revoked = Path("revoked.pem");
  testsupport::WriteFile(revoked, ReadFile(trust()));
  pki::AppendCrlPem(revoked, m_root, {{m_signer.cert.get(), pki::UtcTime(2024, 3, 1)}},
                    pki::UtcTime(2024, 3, 2));
  const std::string revokedOn = "revoked on 2024-03-01 00:00:00 UTC by a CRL in " + revoked;
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
      {packWith({"--key", m_signerKey, "--cert", m_signerCert, "--trust", revoked}),
       "cannot sign packages that the extractor accepts: it was " + revokedOn},
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
  // The library's line and the tool's reason name the revocation.
  ToolRun run = Run({"inspect", "--cert", revoked, Path("pkg.tar.gz")});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.OutHas("  Signer certificate is revoked by a CRL in " + revoked + "\n") &&
              run.OutHas("  the signer /CN=Test Signer was " + revokedOn + "\n"))
      << run.out;
}

}  // namespace
}  // namespace tooltest
