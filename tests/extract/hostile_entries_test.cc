// Packages whose entries are built to escape the destination or to fool the
// checks: absolute and over-long names, links, devices and FIFOs, sizes that
// lie, data after the end of the archive, a name given twice, a second signed
// manifest. Each run must end with the status its case leads to, write
// nothing outside the destination and create nothing but plain files.
#include <gtest/gtest.h>

#include <filesystem>

#include "extract/run_state.h"
#include "tests/extract/hostile_run.h"

namespace runtest {
namespace {

using package::Entry;
using testsupport::FileExists;
using testsupport::PackageOptions;
using testsupport::ReadFile;
using testsupport::SignedManifest;
using testsupport::WriteFile;

class HostileEntryTest : public HostileRunTest {
 protected:
  // Builds the signed package of `entries`, lets `edit` change its
  // uncompressed tar, and stores the result compressed again.
  testsupport::BuiltPackage BuildEdited(const std::vector<Entry>& entries,
                                        const std::function<void(std::string*)>& edit,
                                        const PackageOptions& options = {}) {
    testsupport::BuiltPackage built = Build(entries, options);
    std::string tar = Gunzip(ReadFile(built.path));
    edit(&tar);
    WriteFile(built.path, package::GzipCompress(tar));
    return built;
  }
};

TEST_F(HostileEntryTest, AbsoluteNameIsWrittenBelowTheDestinationOrFailsItsWriter) {
  // The name points into the sentinel directory beside the destination.
  const std::string name = m_sentinel + "/evil";
  std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n"),
                                Entry::File(name, "evil\n")};
  auto package = Build(entries);

  RunResult missing = BoundedRun(package.path);
  EXPECT_EQ(missing.status, PKG_ERR03);
  EXPECT_TRUE(missing.Printed("Failed to write content: "));
  ExpectSafeOutcome(missing, {}, package.manifestText, "absolute name");

  // Once the same directories exist inside the destination it lands there.
  ClearDestination();
  std::filesystem::create_directories(m_dest + m_sentinel);
  RunResult present = BoundedRun(package.path);
  EXPECT_EQ(present.status, KALU_NO_ERR);
  EXPECT_EQ(ReadFile(m_dest + "/" + name), "evil\n");
  Digests digests = ManifestDigests(entries);
  digests[name.substr(1)] = digests[name];
  ExpectSafeOutcome(present, digests, package.manifestText, "absolute name, directories made");
}

TEST_F(HostileEntryTest, NameLongerThanThePathBufferIsCutAndStaysInTheDestination) {
  const std::string name(300, 'n');
  std::vector<Entry> entries = {SignedManifest(), Entry::File(name, "long\n")};
  auto package = Build(entries);

  RunResult run = BoundedRun(package.path);

  // The path "<destination>/<name>" is cut to 254 characters; the digest is
  // still recorded under the whole name, which the manifest lists.
  EXPECT_EQ(run.status, KALU_NO_ERR);
  const std::string cut = (m_dest + "/" + name).substr(0, 254);
  EXPECT_EQ(ReadFile(cut), "long\n");
  ExpectSafeOutcome(run, {{cut.substr(m_dest.size() + 1), package::Sha256Hex("long\n")}},
                    package.manifestText, "long name");

  // An unsigned long name is written the same way and then refused.
  PackageOptions unsigned_;
  unsigned_.leftOutOfManifest = {name};
  package = Build(entries, unsigned_);
  ClearDestination();
  run = BoundedRun(package.path);
  EXPECT_EQ(run.status, SIGN_ERR02);
  EXPECT_TRUE(run.Printed("!!!! File Not Found in Version.inf - [File Name] " + name + " \n"));
  ExpectSafeOutcome(run, {}, package.manifestText, "unsigned long name");
}

// A link, FIFO or device entry carries no data, even when its header claims
// some (the claimed bytes are skipped): it ends the run like any empty entry,
// before a later file that would pass through it, and is never made.
TEST_F(HostileEntryTest, EntriesWithoutDataEndTheRunAndNoneIsCreated) {
  const std::vector<Entry> specials = {
      Entry::Symlink("link", m_sentinel), Entry::Symlink("up", "../sentinel"),
      Entry::HardLink("hard", "a"),       Entry::Fifo("fifo"),
      Entry::CharDevice("null", 1, 3)};
  for (const Entry& special : specials) {
    for (uint64_t claimed : {uint64_t{0}, uint64_t{1024}}) {
      const std::string context = special.name + " claiming " + std::to_string(claimed);
      // With a claim, the claimed bytes are the next header and its block.
      std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n"), special,
                                    Entry::File("filler", std::string(512, 'f')),
                                    Entry::File(special.name + "/evil", "evil\n")};
      auto package = BuildEdited(entries, [&](std::string* tar) {
        if (claimed == 0) return;
        ASSERT_TRUE(package::PatchTarEntrySize(tar, special.name, claimed));
      });
      ClearDestination();

      RunResult run = BoundedRun(package.path);

      EXPECT_EQ(run.status, PKG_ERR03) << context;
      EXPECT_TRUE(run.Printed("Error: archive_entry_size(entry) returns negative value \n"))
          << context;
      EXPECT_EQ(ReadFile(Out("a")), "a\n");
      EXPECT_FALSE(FileExists(Out(special.name))) << context;
      ExpectSafeOutcome(run, ManifestDigests(entries), package.manifestText, context);
    }
  }
}

TEST_F(HostileEntryTest, DeclaredSizeBeyondThePackageFailsAtTheEndOfInput) {
  std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n"),
                                Entry::Generated("big", 70000, 3), Entry::File("c", "c\n")};
  auto package = BuildEdited(entries, [](std::string* tar) {
    ASSERT_TRUE(package::PatchTarEntrySize(tar, "big", (uint64_t{1} << 33) - 1));
  });

  RunResult run = BoundedRun(package.path);

  // Everything after the header is taken as the file's data, up to the end.
  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Problem extracting file\n"));
  EXPECT_FALSE(FileExists(Out("c")));
  ExpectSafeOutcome(run, {}, package.manifestText, "huge declared size");
}

// A second gzip member after the package is decompressed as part of the same
// stream, but the archive has ended before it: its entries are never read.
TEST_F(HostileEntryTest, ArchiveAppendedAfterTheEndMarkerIsNeverRead) {
  std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n")};
  auto package = Build(entries);
  const std::string evil = package::GzipCompress(package::WritePackageToMemory(
      {Entry::File("evil", "evil\n")}, {package::TarFormat::kPaxRestricted, false}));
  WriteFile(package.path, ReadFile(package.path) + evil);

  RunResult run = BoundedRun(package.path);

  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_FALSE(FileExists(Out("evil")));
  ExpectSafeOutcome(run, ManifestDigests(entries), package.manifestText, "appended archive");
}

// Bytes that start like a gzip member but are none fail the decompression
// as soon as the archive reader meets them; with a small package that is
// when it opens the archive.
TEST_F(HostileEntryTest, BrokenGzipMemberAfterTheStreamFailsDecompression) {
  std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n")};
  auto package = Build(entries);
  WriteFile(package.path,
            ReadFile(package.path) + std::string("\x1f\x8b\x08\x00garbage after it", 21));

  RunResult run = BoundedRun(package.path);

  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Failed to create archive file: (-30) (gzip decompression failed)\n"));
  ExpectSafeOutcome(run, {}, package.manifestText, "broken gzip member");
}

TEST_F(HostileEntryTest, SecondEntryOfANameWithOtherDataFailsTheRun) {
  std::vector<Entry> entries = {SignedManifest(), Entry::Generated("a", 100000, 1),
                                Entry::File("b", "b\n")};
  PackageOptions signedList;
  signedList.manifestText = Build(entries).manifestText;
  // An entry added after the signed one, over the same path.
  std::vector<Entry> withSecond = entries;
  withSecond.push_back(Entry::Generated("a", 90000, 2));
  auto package = Build(withSecond, signedList);

  RunResult run = BoundedRun(package.path);

  EXPECT_EQ(run.status, PKG_ERR03);
  ExpectSafeOutcome(run, ManifestDigests(entries), package.manifestText, "second entry of a name");

  // The same data twice is written twice and matches.
  withSecond.back() = entries[1];
  package = Build(withSecond, signedList);
  ClearDestination();
  run = BoundedRun(package.path);
  EXPECT_EQ(run.status, KALU_NO_ERR);
  ExpectSafeOutcome(run, ManifestDigests(entries), package.manifestText, "same entry twice");
}

TEST_F(HostileEntryTest, EntryNamedLikeTheManifestFileIsNotInTheManifest) {
  std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n"),
                                Entry::File("Version.inf", "File1=a\n")};
  PackageOptions options;
  options.leftOutOfManifest = {"Version.inf"};
  auto package = Build(entries, options);

  RunResult run = BoundedRun(package.path);

  EXPECT_EQ(run.status, SIGN_ERR02);
  EXPECT_TRUE(run.Printed("!!!! File Not Found in Version.inf - [File Name] Version.inf \n"));
  ExpectSafeOutcome(run, {}, package.manifestText, "Version.inf entry");
}

// A package carries one signed manifest. A second one, signed by the same
// trusted signer for another package, would otherwise merge that package's
// file list into this one's while Version.inf shows only the last.
TEST_F(HostileEntryTest, SecondSignedManifestIsRefused) {
  const std::string other = m_signer.Sign("Version Number=0.9\nFile1=a\nFile1 Hash Value=" +
                                          package::Sha256Hex("old\n") + "\nFile1 Size=4\n");
  const std::vector<std::vector<Entry>> layouts = {
      // as a second entry
      {Entry::File("Version.der", other), SignedManifest(), Entry::File("a", "old\n")},
      // as a second blob within the one entry, after the first 4096 bytes
      {Entry::File("a", "old\n")}};
  for (size_t i = 0; i < layouts.size(); ++i) {
    PackageOptions options;
    options.leftOutOfManifest = {"a"};
    if (i == 1) {
      std::string own = m_signer.Sign("Version Number=1.0\n");
      own.resize(4096, '\0');
      options.versionDer = own + other;
    }
    std::vector<Entry> entries = layouts[i];
    if (i == 1) entries.insert(entries.begin(), SignedManifest());
    auto package = Build(entries, options);
    ClearDestination();

    RunResult run = BoundedRun(package.path);

    EXPECT_EQ(run.status, SIGN_ERR01) << i;
    EXPECT_TRUE(run.Printed("Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01\n"));
    EXPECT_FALSE(FileExists(Out("a"))) << i;
    ExpectSafeOutcome(run, {}, "", "second manifest");
  }
}

}  // namespace
}  // namespace runtest
