// The extract-verify tool run as a user runs it: pack, resign and extract
// round trips; the inputs and outputs pack refuses; what an extraction's
// status alone does not tell (selection, completeness, unverified files,
// interruption); inspect's report and the packages it fails; the sentences
// every verifying command gives for unusable inputs and failed signatures.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "authoring/package/package_writer.h"
#include "tests/tools/tool_fixture.h"

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
  auto writing = [&] {  // the tool may not have made its output yet
    return FileExists(Path("tool.out")) &&
           ReadFile(Path("tool.out")).find("big.bin") != std::string::npos;
  };
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

// A fixed time makes the entries the same whatever the order of the files
// and the clock; with an RSA key and no signing time, the whole package.
TEST_F(ToolTest, PacksWithAFixedTimeAreReproducible) {
  const std::string a = Input("a.bin", "a\n"), b = Input("b.bin", "b\n");
  const pki::Identity rsa = pki::MakeSigner(
      "RSA", {pki::UtcTime(2023, 1, 1), pki::UtcTime(2039, 1, 1)}, m_root, pki::KeyKind::kRsa2048);
  pki::WriteCertificatesPem(Path("rsa.pem"), {rsa.cert.get()});
  pki::WriteKeyPem(Path("rsa.key"), rsa.key.get());
  auto entries = [&](std::vector<std::string> args, const std::string& out,
                     const std::vector<std::string>& env) {
    args.insert(args.end(), {"--out", Path(out)});
    EXPECT_EQ(Run(args, env).exitStatus, 0);
    nlohmann::json report =
        nlohmann::json::parse(Run({"inspect", "--json", "--cert", trust(), Path(out)}).out);
    report["entries"].erase(0);  // Version.der
    return report["entries"];
  };
  const std::vector<std::string> epoch = {"SOURCE_DATE_EPOCH=1600000000"};
  const nlohmann::json first = entries(PackArgs({b, a}), "1.tar.gz", epoch);
  EXPECT_EQ(first, entries(PackArgs({a, b}), "2.tar.gz", epoch));
  EXPECT_EQ(first[0]["name"], "a.bin");
  EXPECT_EQ(first[0]["header"], nlohmann::json::parse(R"({"mode": "100644", "uid": 0, "gid": 0,
      "uname": "", "gname": "", "mtime": 1600000000})"));
  const std::vector<std::string> rsaPack = {"pack",    "--key",         Path("rsa.key"),
                                            "--cert",  Path("rsa.pem"), "--no-signing-time",
                                            "--mtime", "1600000000",    a,
                                            b};
  entries(rsaPack, "3.tar.gz", {});
  sleep(1);  // a signing time would differ
  entries(rsaPack, "4.tar.gz", {});
  const std::string package = ReadFile(Path("3.tar.gz"));
  EXPECT_EQ(package, ReadFile(Path("4.tar.gz")));
  EXPECT_EQ(package.substr(3, 5), std::string(5, '\0'));  // gzip flags (no name) and time
}

// The whole road of a signature made elsewhere with the stock command of
// the README, and the signatures attach refuses.
TEST_F(ToolTest, SignatureFromASigningRoomAttachesToItsPackageOnly) {
  const std::string a = Input("a.bin", "a\n"), inf = Path("Version.inf");
  ASSERT_EQ(Run({"pack", "--unsigned", inf, "--out", Path("u.tar.gz"), a}).exitStatus, 0);
  auto sign = [&](const std::string& content, const std::string& key, const std::string& cert,
                  const std::string& der) {
    const std::string command =
        "openssl smime -sign -binary -nodetach -outform DER -md sha256 -in " + content +
        " -signer " + cert + " -inkey " + key + " -out " + der;
    EXPECT_EQ(system(command.c_str()), 0) << command;
    return der;
  };
  const pki::Identity stranger = pki::MakeSigner(
      "Stranger", {pki::UtcTime(2023, 1, 1), pki::UtcTime(2039, 1, 1)},
      pki::MakeRootCa("Elsewhere", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)}));
  pki::WriteCertificatesPem(Path("stranger.pem"), {stranger.cert.get()});
  pki::WriteKeyPem(Path("stranger.key"), stranger.key.get());
  testsupport::WriteFile(Path("other.inf"), ReadFile(inf) + "Type=Full\n");
  package::WritePackage(Path("changed.tar.gz"), {package::Entry::File("Version.inf", ReadFile(inf)),
                                                 package::Entry::File("a.bin", "A\n")});
  const std::string good = sign(inf, m_signerKey, m_signerCert, Path("good.der"));
  const std::vector<std::tuple<std::string, std::string, std::string>> refused = {
      {sign(Path("other.inf"), m_signerKey, m_signerCert, Path("other.der")), "u.tar.gz",
       "signs other content than the manifest of " + Path("u.tar.gz")},
      {sign(inf, Path("stranger.key"), Path("stranger.pem"), Path("stranger.der")), "u.tar.gz",
       "does not verify against " + trust() + ": the signer /CN=Stranger does not lead"},
      {good, "changed.tar.gz", "no longer describes its files: a.bin: SHA-256"},
  };
  for (const auto& [signature, package, sentence] : refused) {
    ToolRun run = Run({"attach", "--signature", signature, "--trust", trust(), "--out",
                       Path("signed.tar.gz"), Path(package)});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(run.ErrHas(sentence) && !FileExists(Path("signed.tar.gz"))) << run.err;
  }
  ToolRun run = Run({"attach", "--signature", good, "--trust", trust(), "--out",
                     Path("signed.tar.gz"), Path("u.tar.gz")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  run = Run({"extract", "--cert", trust(), Path("signed.tar.gz"), Path("out")});
  EXPECT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_EQ(ReadFile(Path("out/a.bin")), "a\n");
}

// A key in a SoftHSM2 token made here: it signs a package the library
// extracts, and what can go wrong with it is one sentence each.
TEST_F(ToolTest, KeyInATokenSignsAndItsFailuresAreOneSentence) {
  const std::string module = "/usr/lib/softhsm/libsofthsm2.so";
  if (std::string(EV_TOOL_EMULATOR) != "" || !FileExists(module) ||
      system("command -v softhsm2-util pkcs11-tool > /dev/null") != 0) {
    GTEST_SKIP() << "needs a native build, SoftHSM2 and pkcs11-tool (Debian softhsm2 and opensc, "
                    "which scripts/setup.sh installs)";
  }
  const std::string env = "SOFTHSM2_CONF=" + Path("softhsm2.conf");
  testsupport::WriteFile(Path("softhsm2.conf"), "directories.tokendir = " + Path("tokens") +
                                                    "\nobjectstore.backend = file\n");
  mkdir(Path("tokens").c_str(), 0700);
  const std::string tool = " pkcs11-tool --module " + module + " --login --pin 1234 --id 01 ";
  const std::string made =
      env + " softhsm2-util --init-token --free --label ev --pin 1234 --so-pin 5678 && " +
      "openssl pkey -in " + m_signerKey + " -outform DER -out " + Path("key.der") + " && " +
      "openssl x509 -in " + m_signerCert + " -outform DER -out " + Path("cert.der") + " && " + env +
      tool + "--write-object " + Path("key.der") + " --type privkey && " + env + tool +
      "--write-object " + Path("cert.der") + " --type cert";
  ASSERT_EQ(system(("(" + made + ") > /dev/null 2>&1").c_str()), 0) << made;
  const std::string token = "pkcs11:token=ev;id=%01", query = "?module-path=" + module;
  // The engine leaves its method tables behind when it loads and unloads;
  // LeakSanitizer builds are told so (a full unwind finds those frames).
  testsupport::WriteFile(Path("leaks.supp"), "leak:ENGINE_by_id\nleak:ENGINE_remove\n");
  const std::string leaks =
      "LSAN_OPTIONS=fast_unwind_on_malloc=0:print_suppressions=0:suppressions=" +
      Path("leaks.supp");
  auto pack = [&](const std::string& key, const std::string& cert, const std::string& pin) {
    return Run({"pack", "--key", key, "--cert", cert, "--pass", "env:PIN", "--trust", trust(),
                "--out", Path("t.tar.gz"), Input("a.bin", "a\n")},
               {env, "PIN=" + pin, leaks});
  };
  const std::string key = token + ";type=private" + query;
  const std::vector<std::tuple<std::string, std::string, std::string, std::string>> failures = {
      {key, m_signerCert, "0", "cannot load the key " + key + ": the PIN is wrong"},
      {token + ";object=none" + query, m_signerCert, "1234", "none" + query + ": no token holds"},
      {token + "?module-path=/none.so", m_signerCert, "1234", "read the PKCS#11 module /none.so"},
      {key, trust(), "1234", "the key " + key + " does not belong to the first certificate of"},
  };
  for (const auto& [signingKey, cert, pin, sentence] : failures) {
    ToolRun run = pack(signingKey, cert, pin);
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(run.ErrHas(sentence) && std::count(run.err.begin(), run.err.end(), '\n') == 1)
        << run.err;
  }
  ToolRun run = pack(key, token + ";type=cert" + query, "1234");
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  run = Run({"extract", "--quiet", "--cert", trust(), Path("t.tar.gz"), Path("out")});
  EXPECT_EQ(run.exitStatus, 0) << run.err;
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
  pki::WriteKeyPem(Path("locked.key"), m_signer.key.get(), "secret");
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
