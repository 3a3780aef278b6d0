// inspect run through the built tool on good, tampered and malformed
// packages.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/tools/tool_fixture.h"
#include "tools/package/package_writer.h"

namespace tooltest {
namespace {

using package::Entry;

size_t CountEntries(const std::string& directory) {
  size_t count = 0;
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return 0;
  while (const dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

std::string ManifestOf(const std::vector<std::pair<std::string, std::string>>& files) {
  std::string text = "Version Number=9.9\n";
  for (size_t i = 0; i < files.size(); ++i) {
    std::string key = "File" + std::to_string(i + 1);
    text += key + "=" + files[i].first + "\n" + key + " Hash Value=" +
            package::Sha256Hex(files[i].second) + "\n" + key + " Size=" +
            std::to_string(files[i].second.size()) + "\n";
  }
  return text;
}

TEST_F(ToolTest, InspectOfAGoodPackageListsTheManifestAndLeavesNothingBehind) {
  Pack(Path("pkg.tar.gz"), {Input("a.bin", "a\n"), Input("b.txt", "bee\n")},
       {"Torvan Part Number=TP-7", "Save Location=/fs/usb0"});
  mkdir(Path("tmp").c_str(), 0700);

  ToolRun run = Run({"inspect", "--cert", trust(), Path("pkg.tar.gz")}, {"TMPDIR=" + Path("tmp")});

  EXPECT_EQ(run.exitStatus, 0) << run.out << run.err;
  EXPECT_TRUE(run.OutHas("Signature: verified")) << run.out;
  EXPECT_TRUE(run.OutHas("  Torvan Part Number  TP-7\n"));
  EXPECT_TRUE(run.OutHas("  Save Location       /fs/usb0\n"));
  EXPECT_TRUE(run.OutHas("  File2  b.txt  4 bytes  " + package::Sha256Hex("bee\n") + "\n"));
  EXPECT_TRUE(run.OutHas("Result: OK\n"));
  // The library's own lines are shown only on request.
  EXPECT_FALSE(run.OutHas("Time [@ DER]"));
  EXPECT_EQ(CountEntries(Path("tmp")), 0u);

  run = Run({"inspect", "--cert", trust(), "--verbose", Path("pkg.tar.gz")});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_TRUE(run.OutHas("Time [@ DER]"));
}

TEST_F(ToolTest, InspectFailsAPackageSignedByAnUntrustedKey) {
  Pack(Path("pkg.tar.gz"), {Input("a.bin", "a\n")});
  pki::Identity stranger =
      pki::MakeRootCa("Stranger", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  pki::WriteCertificatesPem(Path("stranger.pem"), {stranger.cert.get()});

  ToolRun run = Run({"inspect", "--cert", Path("stranger.pem"), Path("pkg.tar.gz")});

  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.OutHas("Signature: NOT verified")) << run.out;
  EXPECT_TRUE(run.OutHas("Verification Failed PKCS7_verify()")) << run.out;
  EXPECT_TRUE(run.ErrHas("SIGN_ERR01 (40)")) << run.err;
}

TEST_F(ToolTest, InspectListsEntriesAndFilesThatDoNotMatch) {
  const std::string manifest = ManifestOf({{"a.bin", "a\n"}, {"gone.bin", "g\n"}});
  package::WritePackage(Path("pkg.tar.gz"), {Entry::File("Version.der", Sign(manifest)),
                                             Entry::File("a.bin", "a\n"),
                                             Entry::File("extra.bin", "e\n")});

  ToolRun run = Run({"inspect", "--cert", trust(), Path("pkg.tar.gz")});

  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.OutHas("Signature: verified")) << run.out;
  EXPECT_TRUE(run.OutHas("not in the manifest (the extractor fails with SIGN_ERR02):\n"
                         "  extra.bin\n"))
      << run.out;
  EXPECT_TRUE(run.OutHas("Manifest files missing from the archive:\n  gone.bin\n")) << run.out;
  EXPECT_TRUE(run.OutHas("Result: FAILED\n"));
}

}  // namespace
}  // namespace tooltest
