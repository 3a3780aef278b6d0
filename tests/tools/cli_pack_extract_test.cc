// pack and extract run through the built tool: round trips, every input
// that pack refuses, failed runs and usage errors.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/tools/tool_fixture.h"
#include "tools/package/package_writer.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;

const char kErrorReport[] = "/tmp/extract_verify_error.txt";

TEST_F(ToolTest, PackThenExtractRoundTripsFilesHeaderAndSelection) {
  const std::string big = package::GenerateContent(3 << 20, 11, true);
  const std::string binary("\0\x01\xff binary\n", 11);
  std::vector<std::string> files = {Input("boot.img", big), Input("notes.txt", "notes\n"),
                                    Input("blob.bin", binary)};
  Pack(Path("pkg.tar.gz"), files,
       {"Torvan Part Number=TP-1", "Version Number=2.0=beta", "Type=Full"});

  ToolRun run = Run({"extract", "--cert", trust(), Path("pkg.tar.gz"), Path("out")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_EQ(ReadFile(Path("out/boot.img")), big);
  EXPECT_EQ(ReadFile(Path("out/notes.txt")), "notes\n");
  EXPECT_EQ(ReadFile(Path("out/blob.bin")), binary);
  const std::string manifest = ReadFile(Path("out/Version.inf"));
  EXPECT_EQ(manifest.find("Torvan Part Number=TP-1\nVersion Number=2.0=beta\nType=Full\n"
                          "File1=boot.img\nFile1 Hash Value=" + package::Sha256Hex(big) +
                          "\nFile1 Size=3145728\nFile2=notes.txt\n"),
            0u);
  EXPECT_TRUE(run.OutHas("HashValues are Same - [File Name] blob.bin \n"));
  EXPECT_TRUE(run.OutHas("3 file(s) extracted into " + Path("out")));

  // One file only, with the library's lines hidden.
  run = Run({"extract", "--cert", trust(), "--only", "notes.txt", "--quiet", Path("pkg.tar.gz"),
             Path("only")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_TRUE(FileExists(Path("only/notes.txt")));
  EXPECT_FALSE(FileExists(Path("only/boot.img")));
  EXPECT_FALSE(run.OutHas("Extraction Type"));
  EXPECT_TRUE(run.OutHas("1 file(s) extracted"));

  run = Run({"extract", "--cert", trust(), "--exclude", "boot.img", Path("pkg.tar.gz"),
             Path("excluded")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_TRUE(run.OutHas("Extraction Type: 3\n"));
  EXPECT_FALSE(FileExists(Path("excluded/boot.img")));
  EXPECT_TRUE(FileExists(Path("excluded/blob.bin")));
}

struct Refusal {
  const char* what;
  std::vector<std::string> settings;
  std::vector<std::string> files;
  int exitStatus;
  const char* message;
};

TEST_F(ToolTest, PackRefusesInputsTheExtractorWouldRefuseOrMishandle) {
  const std::string good = Input("good.bin", "good\n");
  mkdir(Path("in/dir").c_str(), 0700);
  mkdir(Path("other").c_str(), 0700);
  testsupport::WriteFile(Path("other/good.bin"), "another\n");
  const std::vector<Refusal> refusals = {
      {"empty file", {}, {good, Input("empty", "")}, 1, "is empty"},
      {"directory", {}, {Path("in/dir")}, 1, "is a directory"},
      {"missing file", {}, {Path("in/none")}, 1, "cannot read"},
      {"dot dot", {}, {Input("a..b", "x")}, 1, "contains \"..\""},
      {"same base name", {}, {good, Path("other/good.bin")}, 1, "have the same name good.bin"},
      {"Version.der", {}, {Input("Version.der", "x")}, 1, "named Version.der"},
      {"Version.inf", {}, {Input("Version.inf", "x")}, 1, "named Version.inf"},
      {"no '='", {"Type"}, {good}, 2, "lacks '='"},
      {"file name key", {"File1=evil.bin"}, {good}, 2, "belongs to the file list"},
      {"file hash key", {"File7 Hash Value=00"}, {good}, 2, "belongs to the file list"},
      {"file size key", {"File2 Size=1"}, {good}, 2, "belongs to the file list"},
      {"key twice", {"Type=A", "Type=B"}, {good}, 2, "given twice"},
      {"comment key", {"#Type=A"}, {good}, 2, "comment or section"},
      {"blank around key", {"Type =A"}, {good}, 2, "blank"},
  };
  for (const Refusal& refusal : refusals) {
    std::vector<std::string> args = {"pack", "--key", m_signerKey, "--cert", m_signerCert,
                                     "--out", Path("refused.tar.gz")};
    for (const std::string& setting : refusal.settings) {
      args.push_back("--set");
      args.push_back(setting);
    }
    args.insert(args.end(), refusal.files.begin(), refusal.files.end());
    ToolRun run = Run(args);
    EXPECT_EQ(run.exitStatus, refusal.exitStatus) << refusal.what << ": " << run.err;
    EXPECT_TRUE(run.ErrHas(refusal.message)) << refusal.what << ": " << run.err;
    EXPECT_FALSE(FileExists(Path("refused.tar.gz"))) << refusal.what;
  }
}

TEST_F(ToolTest, PackRefusesASignedManifestLargerThanOneReadOfTheExtractor) {
  std::vector<std::string> files;
  for (int i = 0; i < 40; ++i) {
    files.push_back(Input("file-with-a-rather-long-name-" + std::to_string(i) + ".bin", "x"));
  }
  ToolRun run = Run([&] {
    std::vector<std::string> args = {"pack", "--key", m_signerKey, "--cert", m_signerCert,
                                     "--out", Path("big.tar.gz")};
    args.insert(args.end(), files.begin(), files.end());
    return args;
  }());
  EXPECT_EQ(run.exitStatus, 1);
  std::smatch size;
  ASSERT_TRUE(std::regex_search(run.err, size,
                                std::regex("the signed manifest is ([0-9]+) bytes; the "
                                           "extractor reads at most 4096")))
      << run.err;
  EXPECT_GT(std::stoi(size[1]), 4096);
  EXPECT_FALSE(FileExists(Path("big.tar.gz")));

  // Fewer files fit: the limit is the extractor's, not a count of files.
  files.resize(20);
  Pack(Path("fits.tar.gz"), files);
}

TEST_F(ToolTest, FailedExtractionReportsTheStatusNameAndNumber) {
  Pack(Path("pkg.tar.gz"), {Input("a.bin", "a\n")});
  pki::Identity stranger =
      pki::MakeRootCa("Stranger", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  pki::WriteCertificatesPem(Path("stranger.pem"), {stranger.cert.get()});

  ToolRun run = Run({"extract", "--cert", Path("stranger.pem"), Path("pkg.tar.gz"), Path("out")});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.ErrHas("extract-verify: extraction failed: SIGN_ERR01 (40)\n")) << run.err;
  EXPECT_EQ(ReadIfExists(kErrorReport), "SIGN_ERR01");

  // A file whose data does not match the signed digest.
  std::vector<package::Entry> entries = {
      package::Entry::File("Version.der",
                           Sign("File1=a.bin\nFile1 Hash Value=" + package::Sha256Hex("b\n") +
                                "\nFile1 Size=2\n")),
      package::Entry::File("a.bin", "a\n")};
  package::WritePackage(Path("tampered.tar.gz"), entries);
  run = Run({"extract", "--cert", trust(), "--quiet", Path("tampered.tar.gz"), Path("out2")});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.ErrHas("extract-verify: extraction failed: SIGN_ERR02 (41)\n")) << run.err;
  EXPECT_EQ(ReadIfExists(kErrorReport), "SIGN_ERR02");
}

TEST_F(ToolTest, UsageErrorsExitWithTwoAndHelpWithZero) {
  const std::vector<std::vector<std::string>> misuses = {
      {},
      {"unpack"},
      {"extract", Path("pkg.tar.gz"), Path("out")},
      {"extract", "--cert", trust(), Path("pkg.tar.gz")},
      {"extract", "--cert", trust(), "--only", "a", "--exclude", "b", "p", "d"},
      {"extract", "--cert", trust(), "--verbose", "p", "d"},
      {"extract", "--cert"},
      {"extract", "--quiet=yes", "--cert", trust(), "p", "d"},
      {"pack", "--key", m_signerKey, "--cert", m_signerCert, "--out", Path("p.tar.gz")},
      {"pack", "--key", m_signerKey, "--out", Path("p.tar.gz"), "f"},
      {"inspect", "--cert", trust(), "a.tar.gz", "b.tar.gz"},
      {"demo", "extra"},
  };
  for (const std::vector<std::string>& args : misuses) {
    ToolRun run = Run(args);
    std::string line;
    for (const std::string& arg : args) line += arg + " ";
    EXPECT_EQ(run.exitStatus, 2) << line << run.err;
    EXPECT_FALSE(run.err.empty()) << line;
    EXPECT_TRUE(run.out.empty()) << line;
  }
  for (const char* command : {"extract", "pack", "inspect", "demo"}) {
    ToolRun run = Run({command, "--help"});
    EXPECT_EQ(run.exitStatus, 0) << command;
    EXPECT_EQ(run.out.find(std::string("Usage: extract-verify ") + command), 0u) << command;
  }
  ToolRun overview = Run({"--help"});
  EXPECT_EQ(overview.exitStatus, 0);
  EXPECT_TRUE(overview.OutHas("  inspect "));
}

}  // namespace
}  // namespace tooltest
