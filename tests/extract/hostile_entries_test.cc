// Packages whose entries are built to escape the destination or to fool the
// checks: absolute and over-long names, links, devices and FIFOs, sizes that
// lie, data after the end of the archive, a name given twice, a second signed
// manifest. Each run must end with the status its case leads to, write
// nothing outside the destination and create nothing but plain files.
#include <gtest/gtest.h>

#include <unistd.h>

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

  // After the manifest, an unsigned long name is refused before it is written.
  PackageOptions unsigned_;
  unsigned_.leftOutOfManifest = {name};
  package = Build(entries, unsigned_);
  ClearDestination();
  run = BoundedRun(package.path);
  EXPECT_EQ(run.status, SIGN_ERR02);
  EXPECT_TRUE(run.Printed("Error: entry " + name + " refused: not listed in the signed manifest\n"));
  EXPECT_FALSE(FileExists(cut));
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

// After the manifest, a size other than the signed one is refused before a
// byte is written; before it, everything after the header is taken as the
// file's data, up to the end.
TEST_F(HostileEntryTest, DeclaredSizeBeyondThePackageIsRefusedOrFailsAtTheEndOfInput) {
  const Entry big = Entry::Generated("big", 70000, 3);
  const std::vector<std::vector<Entry>> layouts = {
      {SignedManifest(), Entry::File("a", "a\n"), big, Entry::File("c", "c\n")},
      {Entry::File("a", "a\n"), big, Entry::File("c", "c\n"), SignedManifest()}};
  for (const std::vector<Entry>& entries : layouts) {
    const bool manifestFirst = entries[0].name == "Version.der";
    auto package = BuildEdited(entries, [](std::string* tar) {
      ASSERT_TRUE(package::PatchTarEntrySize(tar, "big", (uint64_t{1} << 33) - 1));
    });
    ClearDestination();

    RunResult run = BoundedRun(package.path);

    EXPECT_EQ(run.status, manifestFirst ? SIGN_ERR02 : PKG_ERR03);
    EXPECT_TRUE(run.Printed(manifestFirst ? "Error: entry big refused: declared size 8589934591 "
                                            "differs from the signed size 70000\n"
                                          : "Problem extracting file\n"));
    EXPECT_EQ(FileExists(Out("big")), !manifestFirst);
    EXPECT_FALSE(FileExists(Out("c")));
    ExpectSafeOutcome(run, {}, package.manifestText, "huge declared size");
  }
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
  // An entry added after the signed one, over the same path, of the same size.
  std::vector<Entry> withSecond = entries;
  withSecond.push_back(Entry::Generated("a", 100000, 2));
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

// A link that someone placed in the destination before the run is not
// written through: a file then fails to be written, as when its directory is
// missing, and Version.inf is made anew in the link's place.
TEST_F(HostileEntryTest, LinksAlreadyInTheDestinationAreNotFollowed) {
  const std::string victim = m_sentinel + "/victim";
  auto package = Build({SignedManifest(), Entry::File("a", "a\n"), Entry::File("b.txt", "b\n")});
  for (const std::string link : {"b.txt", "Version.inf"}) {
    ClearDestination();
    WriteFile(victim, "victim\n");
    ASSERT_EQ(symlink("../sentinel/victim", Out(link).c_str()), 0);

    RunResult run = BoundedRun(package.path);

    EXPECT_EQ(ReadFile(victim), "victim\n") << link;
    if (link == "b.txt") {
      EXPECT_EQ(run.status, PKG_ERR03);
      EXPECT_TRUE(run.Printed("Failed to write content: " + std::to_string(EBADF) + " 0\n"));
    } else {
      EXPECT_EQ(run.status, KALU_NO_ERR);
      EXPECT_EQ(ReadFile(Out(link)), package.manifestText);
    }
    remove(victim.c_str());
  }
}

// The verified manifest on disk is never replaced, even by a signed entry.
TEST_F(HostileEntryTest, EntryOverTheVerifiedManifestFileIsRefused) {
  for (const std::string name : {"Version.inf", "./Version.inf"}) {
    std::vector<Entry> entries = {SignedManifest(), Entry::File("a", "a\n"),
                                  Entry::File(name, "File1=a\n")};
    PackageOptions options;
    if (name[0] == '.') options.leftOutOfManifest = {name};
    auto package = Build(entries, options);
    ClearDestination();

    RunResult run = BoundedRun(package.path);

    EXPECT_EQ(run.status, PKG_ERR03) << name;
    EXPECT_TRUE(run.Printed("Error: entry " + name +
                            " refused: its path is that of the verified manifest\n"));
    EXPECT_EQ(ReadFile(Out("Version.inf")), package.manifestText) << name;
    ExpectSafeOutcome(run, {}, package.manifestText, name);
  }
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
