// One file larger than 4 GiB, extracted and verified: sizes, offsets, block
// numbers and byte counts must be 64-bit all the way, from the package's
// size through the archive entry's size to the last write past 4 GiB.
//
// Long (minutes, about 7 GB of disk): built only with -DEV_LONG_TESTS=ON and
// labelled "long" (ctest -L long).
#include <gtest/gtest.h>

#include <filesystem>

#include "extract_verify.h"
#include "tests/extract/run_fixture.h"
#include "tools/package/manifest_text.h"

namespace runtest {
namespace {

using package::Entry;

TEST_F(RunTest, FileLargerThanFourGiBIsWrittenWholeAndVerified) {
  // Past 4 GiB by a few chunks and a short tail, so the last write is a
  // plain one at an offset above 32 bits.
  const uint64_t size = (uint64_t{4} << 30) + 3 * 32768 + 123;
  const Entry image = Entry::Generated("image.bin", size, 0x4b1d, true);
  // The data is streamed, never held: the manifest is made from its digest.
  const std::string digest = package::EntrySha256(image);
  const std::string manifest =
      package::ManifestText({{"Version Number", "4.0"}}, {{image.name, digest, size}});
  const std::string packagePath = m_dir.file("package.tar.gz");
  package::WritePackage(packagePath, {Entry::File("Version.der", m_signer.Sign(manifest)), image});
  m_expected = {{image.name, digest}};
  m_manifestText = manifest;

  RunResult run = Run(packagePath);

  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_EQ(run.packageSize, std::filesystem::file_size(packagePath));
  EXPECT_EQ(run.bytesRead, run.packageSize);
  EXPECT_EQ(std::filesystem::file_size(Out(image.name)), size);
  EXPECT_EQ(g_hashResult[image.name], digest);
  ASSERT_EQ(g_objKALU_Version_TPN->m_vecFileInfo.size(), 1u);
  EXPECT_EQ(g_objKALU_Version_TPN->m_vecFileInfo[0].ullFileSize, size);
}

}  // namespace
}  // namespace runtest
