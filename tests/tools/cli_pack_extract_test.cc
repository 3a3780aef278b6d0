// pack, resign and extract run through the built tool: round trips, the
// inputs and outputs pack refuses, and what a run's status alone does not
// tell (selection, completeness, unverified files, interruption).
#include <fcntl.h>
#include <gtest/gtest.h>
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
      {{"unpack"}, 2, ""},
      {{"extract", Path("pkg.tar.gz"), Path("out")}, 2, ""},
      {{"extract", "--cert", trust(), "--only", "a", "--exclude", "b", "p", "d"}, 2, ""},
      {PackArgs({"--out", Path("p.tar.gz")}), 2, ""},
      {{"inspect", "--cert", trust(), "a.tar.gz", "b.tar.gz"}, 2, ""},
      {{"--version"}, 0, "extract-verify 1.0.0 (library 1.0.0)"},
  };
  for (const auto& [args, status, out] : runs) {
    ToolRun run = Run(args);
    EXPECT_EQ(run.exitStatus, status) << run.err;
    EXPECT_TRUE(out.empty() ? run.out.empty() : run.OutHas(out)) << run.out;
  }
}

}  // namespace
}  // namespace tooltest
