#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/hxconfig/HXConfigReader.h"
#include "tests/testsupport/temp_dir.h"
#include "tools/package/manifest_text.h"
#include "tools/package/package_writer.h"

namespace {

using package::Entry;
using package::EntryKind;

struct ReadEntry {
  std::string name;
  int filetype;
  int64_t size;
  std::string symlink;
  std::string hardlink;
  std::string data;
  int result;  // of the last data read: 0 at a clean end, negative on failure
};

// Reads a package back with libarchive's reader; data is read in odd-sized
// pieces to make sure nothing depends on the reader's block size.
std::vector<ReadEntry> ReadPackage(const void* bytes, size_t length) {
  struct archive* a = archive_read_new();
  archive_read_support_format_tar(a);
  archive_read_support_filter_gzip(a);
  EXPECT_EQ(ARCHIVE_OK, archive_read_open_memory(a, bytes, length));
  std::vector<ReadEntry> entries;
  struct archive_entry* header = nullptr;
  while (archive_read_next_header(a, &header) == ARCHIVE_OK) {
    ReadEntry entry{archive_entry_pathname(header), static_cast<int>(archive_entry_filetype(header)),
                    archive_entry_size(header),
                    archive_entry_symlink(header) ? archive_entry_symlink(header) : "",
                    archive_entry_hardlink(header) ? archive_entry_hardlink(header) : "", "", 0};
    char piece[7777];
    la_ssize_t n;
    while ((n = archive_read_data(a, piece, sizeof piece)) > 0) entry.data.append(piece, n);
    entry.result = static_cast<int>(n);
    entries.push_back(entry);
    if (n < 0) break;
  }
  archive_read_free(a);
  return entries;
}

std::vector<ReadEntry> ReadPackage(const std::string& bytes) {
  return ReadPackage(bytes.data(), bytes.size());
}

TEST(PackageWriter, RoundTripKeepsNamesKindsContentsAndDigests) {
  testsupport::TempDir dir;
  testsupport::WriteFile(dir.file("disk.bin"), std::string("from disk\0with a NUL", 20));
  std::vector<Entry> entries = {
      Entry::File("Version.der", "signed"),
      Entry::Directory("maps/"),
      Entry::FromDisk("maps/disk.bin", dir.file("disk.bin")),
      Entry::Generated("maps/gen.bin", 100000, 7, true),
      Entry::Symlink("latest", "maps/gen.bin"),
      Entry::HardLink("copy.bin", "maps/disk.bin"),
      Entry::Fifo("pipe"),
      Entry::CharDevice("null", 1, 3),
  };
  std::vector<package::WrittenEntry> written =
      package::WritePackage(dir.file("p.tar.gz"), entries);
  std::vector<ReadEntry> read = ReadPackage(testsupport::ReadFile(dir.file("p.tar.gz")));

  ASSERT_EQ(8u, read.size());
  ASSERT_EQ(8u, written.size());
  // The reader gives a hard link no file type of its own.
  const int kinds[] = {AE_IFREG, AE_IFDIR, AE_IFREG, AE_IFREG, AE_IFLNK, 0, AE_IFIFO, AE_IFCHR};
  for (size_t i = 0; i < read.size(); ++i) {
    EXPECT_EQ(entries[i].name, read[i].name);
    EXPECT_EQ(kinds[i], read[i].filetype) << read[i].name;
    EXPECT_EQ(entries[i].kind, written[i].kind);
    EXPECT_EQ(0, read[i].result);
  }
  EXPECT_EQ("signed", read[0].data);
  EXPECT_EQ(std::string("from disk\0with a NUL", 20), read[2].data);
  EXPECT_EQ(package::GenerateContent(100000, 7, true), read[3].data);
  EXPECT_EQ("maps/gen.bin", read[4].symlink);
  EXPECT_EQ("maps/disk.bin", read[5].hardlink);
  for (size_t i : {0u, 2u, 3u}) {
    EXPECT_EQ(package::Sha256Hex(read[i].data), written[i].sha256) << read[i].name;
    EXPECT_EQ(read[i].data.size(), written[i].size);
  }
  EXPECT_EQ("", written[1].sha256);
  EXPECT_EQ("", written[5].sha256);
}

TEST(PackageWriter, UstarFormatAndUncompressedOutputAreReadable) {
  package::WriteOptions options;
  options.format = package::TarFormat::kUstar;
  options.gzip = false;
  std::string tar = package::WritePackageToMemory({Entry::File("a", "alpha")}, options);
  EXPECT_EQ(0, tar.compare(257, 5, "ustar"));
  std::vector<ReadEntry> read = ReadPackage(tar);
  ASSERT_EQ(1u, read.size());
  EXPECT_EQ("alpha", read[0].data);
}

TEST(ContentGenerator, SameSeedSameBytesWhateverThePieces) {
  const uint64_t kSize = 3 * package::ContentGenerator::kRunLength + 5;
  std::string whole = package::GenerateContent(kSize, 42, true);
  package::ContentGenerator generator(kSize, 42, true);
  std::string pieced;
  unsigned char piece[13];
  for (size_t n; (n = generator.read(piece, sizeof piece)) > 0;) {
    pieced.append(reinterpret_cast<char*>(piece), n);
  }
  EXPECT_EQ(whole, pieced);
  EXPECT_EQ(0u, generator.remaining());
  EXPECT_NE(whole, package::GenerateContent(kSize, 43, true));
  EXPECT_EQ(whole.substr(0, 1000), package::GenerateContent(1000, 42, false));
}

TEST(ContentGenerator, MixedContentCompressesAndRandomDoesNot) {
  const uint64_t kSize = 1 << 20;
  size_t random = package::GzipCompress(package::GenerateContent(kSize, 1, false)).size();
  size_t mixed = package::GzipCompress(package::GenerateContent(kSize, 1, true)).size();
  EXPECT_GT(random, kSize * 99 / 100);
  EXPECT_LT(mixed, kSize * 3 / 5);
}

TEST(PackageWriter, StreamsLargeGeneratedEntries) {
  testsupport::TempDir dir;
  const uint64_t kSize = 5 * 1024 * 1024 + 3;
  std::vector<package::WrittenEntry> written = package::WritePackage(
      dir.file("big.tar.gz"), {Entry::Generated("big.bin", kSize, 9, true)});
  std::vector<ReadEntry> read = ReadPackage(testsupport::ReadFile(dir.file("big.tar.gz")));
  ASSERT_EQ(1u, read.size());
  ASSERT_EQ(kSize, read[0].data.size());
  EXPECT_TRUE(read[0].data == package::GenerateContent(kSize, 9, true));
  EXPECT_EQ(package::Sha256Hex(read[0].data), written[0].sha256);
  EXPECT_EQ(written[0].sha256, package::EntrySha256(Entry::Generated("big.bin", kSize, 9, true)));
}

TEST(PackageWriter, DeclaredSizePadsOrCutsAndTheDigestFollowsTheStoredData) {
  Entry longer = Entry::File("longer", "abc");
  longer.declaredSize = 600;
  Entry shorter = Entry::File("shorter", "abcdef");
  shorter.declaredSize = 2;
  std::vector<package::WrittenEntry> written;
  std::vector<ReadEntry> read =
      ReadPackage(package::WritePackageToMemory({longer, shorter}, {}, &written));
  ASSERT_EQ(2u, read.size());
  EXPECT_EQ(std::string("abc") + std::string(597, '\0'), read[0].data);
  EXPECT_EQ("ab", read[1].data);
  EXPECT_EQ(package::Sha256Hex(read[0].data), written[0].sha256);
  EXPECT_EQ(600u, written[0].size);
  EXPECT_EQ(package::Sha256Hex("ab"), written[1].sha256);
  // The digest known before writing is the one of the stored data.
  EXPECT_EQ(written[0].sha256, package::EntrySha256(longer));
  EXPECT_EQ(written[1].sha256, package::EntrySha256(shorter));
}

TEST(PackageWriter, PatchedSizeMakesAHeaderLieAboutItsData) {
  package::WriteOptions plain;
  plain.gzip = false;
  std::string tar = package::WritePackageToMemory(
      {Entry::File("first", "1111"), Entry::File("dir/second", "22")}, plain);
  EXPECT_FALSE(package::PatchTarEntrySize(&tar, "missing", 5));
  ASSERT_TRUE(package::PatchTarEntrySize(&tar, "dir/second", 100000));

  std::vector<ReadEntry> read = ReadPackage(package::GzipCompress(tar));
  ASSERT_EQ(2u, read.size());
  EXPECT_EQ("1111", read[0].data);
  EXPECT_EQ(100000, read[1].size);
  EXPECT_LT(read[1].result, 0);  // the data ends before the size says
}

TEST(ManifestText, WrittenPackageManifestReadsBackThroughTheConfigurationReader) {
  testsupport::TempDir dir;
  std::vector<package::WrittenEntry> written = package::WritePackage(
      dir.file("p.tar.gz"), {Entry::Directory("d"), Entry::File("d/x", "xx"),
                             Entry::Symlink("l", "d/x"), Entry::Generated("y", 70000, 3)});
  std::vector<package::ManifestFile> files = package::ManifestFiles(written);
  ASSERT_EQ(2u, files.size());
  std::string text = package::ManifestText({{"Type", "full"}}, files);
  EXPECT_EQ(0u, text.find("Type=full\nFile1=d/x\nFile1 Hash Value=" + package::Sha256Hex("xx") +
                          "\nFile1 Size=2\nFile2=y\n"));
  testsupport::WriteFile(dir.file("Version.inf"), text);

  CHXConfigReader reader(dir.file("Version.inf"));
  EXPECT_EQ("full", reader.GetString("Type"));
  EXPECT_EQ("d/x", reader.GetString("File1"));
  EXPECT_EQ(package::Sha256Hex("xx"), reader.GetString("File1 Hash Value"));
  EXPECT_EQ("y", reader.GetString("File2"));
  EXPECT_EQ(package::Sha256Hex(package::GenerateContent(70000, 3)),
            reader.GetString("File2 Hash Value"));
  EXPECT_EQ(70000.0, reader.GetDouble("File2 Size"));
  EXPECT_EQ("", reader.GetString("File3"));
}

}  // namespace
