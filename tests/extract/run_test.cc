// End-to-end runs, one parameterised suite per fault family, each case a
// test of its own: the extraction types, the comparison's verdicts,
// unusable sources, entries built to escape the destination, the bounds the
// signed manifest sets, entries of one name twice, and runs that stop before
// the end of a package larger than the read ring (the reader blocked on the
// full ring). Every run also passes the fixture's checks (run_fixture.h).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "extract_verify/extraction.h"
#include "tests/extract/run_fixture.h"
#include "tests/testsupport/capture.h"

namespace runtest {
namespace {

using package::Entry;
using testsupport::FileExists;
using testsupport::PackageOptions;
using testsupport::ReadFile;
using testsupport::SignedManifest;

const uint32_t kChunk = 32768;
const std::string kNoData = "Error: archive_entry_size(entry) returns negative value";

class CaseTest;

// One run and what it must end with. What depends on the test's own
// directory (paths, the signer) is filled in by `complete` before the build.
struct Case {
  std::string name = {};
  std::vector<Entry> entries = {};
  _KALU_Error status = KALU_ERR;
  PackageOptions options = {};
  RunOptions run = {};
  std::vector<std::string> printed = {};  // in this order
  std::vector<std::string> notPrinted = {};
  std::vector<std::string> logged = {};  // "level:function:text"
  std::map<std::string, std::string> written = {};
  std::vector<std::string> absent = {};
  EV_ExtractionStage stage = EXTRACTION_STAGE_READING;  // when stalled
  std::function<void(CaseTest&, Case&)> complete = nullptr;
  std::function<void(CaseTest&)> prepare = nullptr;  // after the build, before the run
  std::function<void(CaseTest&)> more = nullptr;     // after the run
};

class CaseTest : public RunTest, public ::testing::WithParamInterface<Case> {};

// A family's cases as they are written: Add returns the new case.
Case* Add(std::vector<Case>& t, const std::string& name, std::vector<Entry> entries,
          _KALU_Error status) {
  t.push_back({name, std::move(entries), status});
  return &t.back();
}

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
  std::string name = info.param.name;
  for (char& c : name) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

void ExpectInOrder(const std::string& output, const std::vector<std::string>& texts) {
  size_t at = 0;
  for (const std::string& text : texts) {
    at = output.find(text, at);
    ASSERT_NE(at, std::string::npos) << "\"" << text << "\" missing or out of order in:\n"
                                     << output;
  }
}

TEST_P(CaseTest, EndsWithItsStatusOutputAndFiles) {
  Case one = GetParam();
  if (one.complete) one.complete(*this, one);
  Build(one.entries, one.options);
  if (one.prepare) one.prepare(*this);
  RunResult run = Run(m_package, one.run);
  EXPECT_EQ(run.status, one.status);
  EXPECT_EQ(run.stalled, one.run.stall);
  if (one.run.stall) {
    EXPECT_EQ(run.stalledStage, one.stage);
    // Bytes after the gzip stream are never needed.
    EXPECT_EQ(run.bytesRead < run.packageSize,
              one.stage == EXTRACTION_STAGE_READING || one.options.trailingBytes > 0);
  }
  ExpectInOrder(run.output, one.printed);
  for (const std::string& text : one.notPrinted) EXPECT_FALSE(run.Printed(text)) << text;
  for (const std::string& line : one.logged) EXPECT_TRUE(run.Logged(line)) << line;
  for (const auto& file : one.written) EXPECT_EQ(ReadFile(Out(file.first)), file.second);
  for (const std::string& name : one.absent) EXPECT_FALSE(FileExists(Out(name))) << name;
  if (one.more) one.more(*this);
}

Entry Large(const std::string& name) { return Entry::Generated(name, kLargePackageBytes, 0xb16); }
const Entry a = Entry::File("a", "a\n"), b = Entry::File("b", "b\n"), c = Entry::File("c", "c\n");

// The bytes appended to the package after it is built.
std::function<void(CaseTest&)> Append(const std::string& bytes) {
  return
      [bytes](CaseTest& t) { testsupport::WriteFile(t.m_package, ReadFile(t.m_package) + bytes); };
}

std::vector<Case> Selection() {
  std::vector<Case> t;
  Case* k = Add(t, "single file, manifest after it", {a, b, SignedManifest(), c}, KALU_NO_ERR);
  k->run.interested = "b";
  k->printed = {"Extraction Type: 2\n", "Skipped File : a  from Extraction\n",
                "Extracting file Name : b\n", "Extracting file Name : Version.der\n",
                "Skipped File : c  from Extraction\n"};
  k->logged = {"23:extractThread:Skipped File : c  from Extraction"};
  k->written = {{"b", "b\n"}};
  k->absent = {"a", "c"};
  k->more = [](CaseTest&) {
    EXPECT_TRUE(CheckParticularFileExtraction() && g_hashResult.size() == 1);
  };
  k = Add(t, "exclude", {SignedManifest(), a, b, c}, KALU_NO_ERR);
  k->run = {"b", true};
  k->printed = {"Extraction Type: 3\n", "Excluded File : b  from Extraction\n"};
  k->logged = {"23:extractThread:Excluded File : b  from Extraction"};
  k->written = {{"a", "a\n"}, {"c", "c\n"}};
  k->absent = {"b"};
  k = Add(t, "empty name selects nothing", {SignedManifest(), a, b}, KALU_NO_ERR);
  k->run.interested = "";
  k->printed = {"Skipped File : a  from Extraction\n", "Skipped File : b  from Extraction\n"};
  k->more = [](CaseTest&) {
    EXPECT_FALSE(CheckParticularFileExtraction());
    EXPECT_EQ(CheckExtractionCompleteness(), SIGN_ERR02);  // the file asked for is not there
  };
  return t;
}

// The comparison prints and logs every match and the first failure, in name
// order; a digest differing only in case is a mismatch.
std::vector<Case> Comparison() {
  std::vector<Case> t;
  const std::string digestA = package::Sha256Hex("a\n"), digestC = package::Sha256Hex("c\n");
  std::string upperC = digestC;
  for (char& x : upperC) x = static_cast<char>(toupper(x));
  Case* k = Add(t, "digest in upper case", {SignedManifest(), a, c}, SIGN_ERR02);
  k->options.hashOverrides = {{"c", upperC}};
  k->printed = {"HashValues are Same - [File Name] a \nVersion Inf Hash Value    : " + digestA +
                    " \nExtracted file Hash Value : " + digestA + " \n",
                "!!!! HashValue Mismatch Error - [File Name] c \nVersion Inf Hash Value    : " +
                    upperC + " \nExtracted file Hash Value : " + digestC + " \n"};
  for (const std::string& line : std::vector<std::string>{
           "HashValues are Same - [File Name] a", "Version Inf Hash Value    : " + digestA,
           "Extracted file Hash Value : " + digestA + " ",
           "!!!! HashValue Mismatch Error - [File Name] c", "Version Inf Hash Value    : " + upperC,
           "Extracted file Hash Value : " + digestC}) {
    k->logged.push_back("23:compareHashValues:" + line);
  }
  // With the manifest last, the files are judged by their digests alone.
  k = Add(t, "file not in the manifest", {c, b, a, SignedManifest()}, SIGN_ERR02);
  k->options.leftOutOfManifest = {"b"};
  k->options.hashOverrides = {{"c", std::string(64, '0')}};
  k->printed = {
      "!!!! File Not Found in Version.inf - [File Name] b \nExtracted file Hash Value : " +
      package::Sha256Hex("b\n") + " \n"};
  k->logged = {"23:compareHashValues:!!!! File Not Found in Version.inf - [File Name] b  "};
  k->notPrinted = {"[File Name] c"};
  Add(t, "no manifest", {a}, VER_ERR01)->written = {{"a", "a\n"}};
  return t;
}

// Sources that cannot be opened or unpacked.
std::vector<Case> UnusableSources() {
  std::vector<Case> t;
  Case* k = Add(t, "missing source", {}, PKG_ERR03);
  k->prepare = [](CaseTest& t) { unlink(t.m_package.c_str()); };
  k->printed = {"Extraction Type: 1\n", "Error: open64() failed. Error no: 2\n",
                "Total Consumed Time = "};
  k->notPrinted = {"Wait extractTid"};
  k->logged = {"31:copyWithHash:Error: open64() failed. Error no: 2 ", "23:ExtractWithHash:-"};
  const std::string refused = "Failed to create archive file: (-30) (Unrecognized archive format)";
  k = Add(t, "no archive", {}, PKG_ERR03);
  k->prepare = [](CaseTest& t) {
    testsupport::WriteFile(t.m_package, package::GenerateContent(kLargePackageBytes, 4));
  };
  k->printed = {"File size : " + std::to_string(kLargePackageBytes) + " Bytes\n", refused + "\n"};
  k->logged = {"31:extractThread:" + refused};
  // An archive after the end marker is inflated but never read.
  k = Add(t, "archive appended", {SignedManifest(), a}, KALU_NO_ERR);
  k->prepare = Append(package::GzipCompress(package::WritePackageToMemory(
      {Entry::File("evil", "evil\n")}, {package::TarFormat::kPaxRestricted, false})));
  k->absent = {"evil"};
  return t;
}

const std::string kWriteFailed = "Failed to write content: " + std::to_string(EBADF) + " 0\n";

// Entries built to leave the destination, or to write through what is there.
std::vector<Case> Escapes() {
  std::vector<Case> t;
  // Writers that fail keep taking chunks: the entry is larger than its ring.
  Case* k = Add(t, "missing subdirectory", {SignedManifest(), a, Large("missing/b")}, PKG_ERR03);
  k->printed = {kWriteFailed};
  k->logged = {"31:writerThread:" + kWriteFailed};
  k->written = {{"a", "a\n"}};
  // An absolute name stays below the destination, where its directories are missing.
  k = Add(t, "absolute name", {SignedManifest()}, PKG_ERR03);
  k->complete = [](CaseTest& t, Case& c) {
    c.entries.push_back(Entry::File(t.m_sentinel + "/evil", "evil\n"));
  };
  // "<destination>/<name>" is cut to the path buffer; the digest is still
  // recorded under the whole name, which the manifest lists.
  k = Add(t, "long name", {SignedManifest(), Entry::File(std::string(300, 'n'), "long\n")},
          KALU_NO_ERR);
  k->complete = [](CaseTest& t, Case& c) {
    const std::string cut = t.Out(std::string(300, 'n')).substr(0, 254).substr(t.m_dest.size() + 1);
    c.prepare = [cut](CaseTest& t) { t.m_expected = {{cut, package::Sha256Hex("long\n")}}; };
    c.written = {{cut, "long\n"}};
  };
  // A link, FIFO or device carries no data even when its header claims some
  // (the claimed bytes, the next header and its block, are skipped): it ends
  // the run like an empty entry, before a file that would pass through it.
  for (const Entry& special :
       {Entry::Symlink("link", "sentinel"), Entry::Symlink("up", "../sentinel"),
        Entry::HardLink("hard", "a"), Entry::Fifo("fifo"), Entry::CharDevice("null", 1, 3)}) {
    for (uint64_t claimed : {0, 1024}) {
      k = Add(t, special.name + " claiming " + std::to_string(claimed),
              {SignedManifest(), a, special, Entry::File("filler", std::string(512, 'f')),
               Entry::File(special.name + "/evil", "evil\n")},
              PKG_ERR03);
      k->options.editTar = [name = special.name, claimed](std::string* tar) {
        ASSERT_TRUE(claimed == 0 || package::PatchTarEntrySize(tar, name, claimed));
      };
      k->printed = {kNoData + " \n"};
      k->written = {{"a", "a\n"}};
      k->absent = {special.name};
    }
  }
  // The verified manifest on disk is never replaced, even by a signed entry.
  for (const std::string name : {"Version.inf", "./Version.inf"}) {
    k = Add(t, "entry over " + name, {SignedManifest(), a, Entry::File(name, "File1=a\n")},
            PKG_ERR03);
    if (name[0] == '.') k->options.leftOutOfManifest = {name};
    k->printed = {"Error: entry " + name + " refused: its path is that of the verified manifest\n"};
    k->more = [](CaseTest& t) { EXPECT_EQ(ReadFile(t.Out("Version.inf")), t.m_manifestText); };
  }
  // A link placed in the destination before the run is not written through:
  // the file fails as when its directory is missing; Version.inf is made anew.
  for (const std::string link : {"b", "Version.inf"}) {
    k = Add(t, "link planted as " + link, {SignedManifest(), a, b},
            link == "b" ? PKG_ERR03 : KALU_NO_ERR);
    k->prepare = [link](CaseTest& t) {
      testsupport::WriteFile(t.m_dir.file("victim"), "victim\n");
      symlink(t.m_dir.file("victim").c_str(), t.Out(link).c_str());
      t.m_planted = {link};
    };
    k->printed = {link == "b" ? kWriteFailed : ""};
    k->more = [](CaseTest& t) {
      EXPECT_EQ(ReadFile(t.m_dir.file("victim")), "victim\n");
      t.m_planted.clear();
    };
  }
  return t;
}

// After the manifest a size other than the signed one, or a name it does
// not list, is refused before a byte is written; before it, the file is
// written (everything after its header is its data, up to the end) and its
// size judged at the end by the same rule. A package has one signed
// manifest: a second from the same signer, as an entry or after the first
// 4096 bytes of the one entry, would merge another package's file list; the
// first stays the verified Version.inf on disk.
std::vector<Case> ManifestBounds() {
  std::vector<Case> t;
  Case* k;
  for (bool manifestFirst : {true, false}) {
    for (int64_t declared : {int64_t{69999}, int64_t{70001}, (int64_t{1} << 33) - 1}) {
      const bool beyond = declared > 70001;
      k = Add(t,
              std::string(manifestFirst ? "after" : "before") + " the manifest, declared size " +
                  std::to_string(declared),
              {a, Entry::Generated("big", 70000, 3), c},
              manifestFirst || !beyond ? SIGN_ERR02 : PKG_ERR03);
      k->entries.insert(manifestFirst ? k->entries.begin() : k->entries.end(), SignedManifest());
      k->entries[manifestFirst ? 2 : 1].declaredSize = beyond ? -1 : declared;
      k->options.editTar = [beyond, declared](std::string* tar) {
        ASSERT_TRUE(!beyond || package::PatchTarEntrySize(tar, "big", uint64_t(declared)));
      };
      k->printed = {!manifestFirst && beyond
                        ? "Problem extracting file\n"
                        : "Error: entry big refused: declared size " + std::to_string(declared) +
                              " differs from the signed size 70000\n"};
      if (beyond) k->absent = {"c"};
      if (manifestFirst) k->absent.push_back("big");
    }
  }
  k = Add(t, "file not listed", {SignedManifest(), a, b}, SIGN_ERR02);
  k->options.leftOutOfManifest = {"b"};
  k->printed = {"Error: entry b refused: not listed in the signed manifest\n"};
  k->absent = {"b"};
  for (bool inOneEntry : {false, true}) {
    k = Add(t, inOneEntry ? "second manifest in one entry" : "second manifest",
            {SignedManifest(), Entry::File("a", "old\n")}, SIGN_ERR01);
    k->complete = [inOneEntry](CaseTest& t, Case& c) {
      const std::string first = inOneEntry ? "Version Number=1.0\n" : "Version Number=0.9\n";
      std::string der = t.m_signer.Sign(first), other = t.m_signer.Sign("File1=a\n");
      if (inOneEntry) {
        der.resize(4096, '\0');
        c.options.versionDer = der + other;
      } else {
        c.entries.insert(c.entries.begin(), Entry::File("Version.der", der));
        c.options.versionDer = other;
      }
      c.more = [first](CaseTest& t) { EXPECT_EQ(ReadFile(t.Out("Version.inf")), first); };
    };
    k->options.leftOutOfManifest = {"a"};
    k->printed = {"Error: more than one signed manifest in the package\n",
                  "Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01\n"};
    k->absent = {"a"};
  }
  return t;
}

// A second entry over a signed one: the first digest is kept and the file on
// disk no longer matches it; the same data twice passes.
std::vector<Case> Duplicates() {
  std::vector<Case> t;
  for (uint64_t seed : {2, 1}) {
    Case* k = Add(t, seed == 2 ? "second entry of a name" : "same entry twice",
                  {SignedManifest(), Entry::Generated("dup", 100000, 1), b,
                   Entry::Generated("dup", 100000, seed)},
                  seed == 2 ? PKG_ERR03 : KALU_NO_ERR);
    k->complete = [](CaseTest& t, Case& c) {
      const std::vector<Entry> once(c.entries.begin(), c.entries.end() - 1);
      c.options.manifestText =
          testsupport::BuildSignedPackage(t.m_signer, t.m_dir.file("p"), once).manifestText;
      if (c.status == KALU_NO_ERR) return;
      c.printed = {"Error: " + t.Out("dup") + " written twice with different contents\n"};
      c.more = [](CaseTest& t) { EXPECT_EQ(g_hashResult["dup"], t.m_expected["dup"]); };
    };
  }
  return t;
}

// The extract thread stops taking chunks before the end of a large package.
std::vector<Case> StalledStops() {
  std::vector<Case> t;
  Case* k = Add(t, "untrusted signature", {a, SignedManifest(), Large("large")}, SIGN_ERR01);
  k->complete = [](CaseTest& t, Case& c) {
    c.options.versionDer =
        testsupport::TestSigner(t.m_dir.file("stranger.pem")).Sign("File1=large\n");
  };
  k->printed = {"Extracting file Name : a\n",
                "Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01\n"};
  k->logged = {"31:extractThread:Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01 "};
  k->notPrinted = {"Extracting file Name : large"};
  k->more = [](CaseTest&) { EXPECT_TRUE(g_hashResult.empty()); };
  k = Add(t, "manifest failing its parsing", {SignedManifest(), Large("large")}, VER_ERR04);
  k->options.manifestText = "Type=Full\nFile1=large\nFile2 Hash Value=00\n";
  k->printed = {"KALU Error 22 \n", "Error: Version Inf Parsing Failed. Status :22 / VER_ERR04\n"};
  k->logged = {"31:PrintKALU_VersionParse_TPN:KALU Error 22 \n"};
  // The size is judged before the name: an empty entry whose name holds ".."
  // ends the run as empty, not as a name that stops the walk.
  for (const Entry& empty : {Entry::Directory("dir"), Entry::File("em..pty", "")}) {
    k = Add(t, "empty entry " + empty.name, {SignedManifest(), a, empty, Large("large")},
            PKG_ERR03);
    k->logged = {"31:extractThread:" + kNoData};
    k->written = {{"a", "a\n"}};
  }
  k = Add(t, "\"..\" in a name", {SignedManifest(), a, Entry::File("f..txt", "x\n"), Large("l")},
          KALU_NO_ERR);
  k->printed = {"Zip: Entry file name contains - \"..\" \n",
                "HashValues are Same - [File Name] a \n"};
  k->notPrinted = {"Extracting file Name : l"};
  k->absent = {"f..txt"};
  k->more = [](CaseTest&) {  // ... but the package was not written whole, which the client can ask
    testsupport::OutputCapture output;
    EXPECT_EQ(CheckExtractionCompleteness(), SIGN_ERR02);
    EXPECT_EQ(output.Finish(), "!!!! File Not Extracted - [File Name] f..txt \n");
  };
  k = Add(t, "single file found", {SignedManifest(), a, b, Large("large")}, KALU_NO_ERR);
  k->run.interested = "b";
  k->notPrinted = {"Skipped File : large"};
  k->more = [](CaseTest&) {
    EXPECT_EQ(g_isExtractionCompleted.load(), 1);
    EXPECT_EQ(CheckExtractionCompleteness(), KALU_NO_ERR);
  };
  // Read to their end only where libarchive inflates: an inflating reader
  // stops at the end of the gzip stream.
  k = Add(t, "bytes after the archive", {SignedManifest(), a}, KALU_NO_ERR);
  k->options.trailingBytes = kLargePackageBytes;
  if (EV_HAVE_ISAL) k->stage = EXTRACTION_STAGE_FINISHING;
  // A package read to its end while Version.der waits: the run is not over.
  k = Add(t, "package read, run not over", {SignedManifest(), a, b}, KALU_NO_ERR);
  k->stage = EXTRACTION_STAGE_FINISHING;
  k->more = [](CaseTest&) {
    uint32_t filesFinished = 0;
    EXPECT_EQ(GetExtractionStage(&filesFinished), EXTRACTION_STAGE_DONE);
    EXPECT_EQ(filesFinished, 2u);
  };
  k = Add(t, "abort", {SignedManifest(), Large("large")}, PKG_ERR03);
  k->run.duringRun = AbortExtraction;
  k->printed = {"Extraction Interrupted.\n", "Wait extractTid thread to join\n"};
  k->logged = {"23:copyWithHash:Extraction Interrupted."};
  for (Case& one : t) one.run.stall = true;
  return t;
}

INSTANTIATE_TEST_SUITE_P(Selection, CaseTest, ::testing::ValuesIn(Selection()), CaseName);
INSTANTIATE_TEST_SUITE_P(Comparison, CaseTest, ::testing::ValuesIn(Comparison()), CaseName);
INSTANTIATE_TEST_SUITE_P(UnusableSources, CaseTest, ::testing::ValuesIn(UnusableSources()),
                         CaseName);
INSTANTIATE_TEST_SUITE_P(Escapes, CaseTest, ::testing::ValuesIn(Escapes()), CaseName);
INSTANTIATE_TEST_SUITE_P(ManifestBounds, CaseTest, ::testing::ValuesIn(ManifestBounds()), CaseName);
INSTANTIATE_TEST_SUITE_P(Duplicates, CaseTest, ::testing::ValuesIn(Duplicates()), CaseName);
INSTANTIATE_TEST_SUITE_P(StalledStops, CaseTest, ::testing::ValuesIn(StalledStops()), CaseName);

// A full run after a selective one and an abort requested between runs,
// which has no effect on the next run: files around the chunk size and
// larger than the file ring come out whole, in order (the fixture compares
// them), and the run's state stays until the next run.
TEST_F(RunTest, FullRunWritesEveryFileAndLeavesItsStateBehind) {
  Run(Build({SignedManifest(), Entry::File("a", "a\n")}).path, {"a"});
  AbortExtraction();
  ClearDestination();
  mkdir(Out("dir").c_str(), 0755);
  mkdir(Out("x").c_str(), 0755);
  auto package = Build(
      {Entry::File("a.txt", "alpha\n"), SignedManifest(),
       Entry::Generated("dir/b.bin", 3 * kChunk, 2), Entry::Generated("x/Version.der", 300, 3),
       Entry::Generated("Version.derx", kChunk + 1, 4), Entry::Generated("one_byte", 1, 5),
       Entry::Generated("ring", (16 << 20) + 3 * kChunk + 7, 14, true)});

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_EQ(CountEntries(m_dest.c_str()), 7u);  // Version.inf, the files, dir and x
  ExpectInOrder(
      run.output,
      {"Extraction Type: 1\n", "Input File : " + package.path + "\n",
       "File size : " + std::to_string(package.size) + " Bytes\n", "Extracting file Name : a.txt\n",
       "Extracting file Name : Version.der\n",
       "Version_Parse_INF File Location : " + Out("Version.inf") + "\n",
       "Extracting file Name : dir/b.bin\n", "Extracting file Name : x/Version.der\n",
       "Waiting for child threads to join\n", "HashValues are Same - [File Name] Version.derx \n",
       "HashValues are Same - [File Name] a.txt \n",
       "HashValues are Same - [File Name] x/Version.der \n", "Total Consumed Time = "});
  ExpectInOrder(run.output, {"Wait extractTid thread to join\n", "HashValues are Same"});
  EXPECT_FALSE(run.Printed("Extraction Interrupted."));
  for (const char* line :
       {"23:ExtractWithHash:Extraction Type: 1 ", "23:copyWithHash: Entering While Loop ",
        "23:extractThread:Extracting file Name : Version.der\n"}) {
    EXPECT_TRUE(run.Logged(line)) << line;
  }
  EXPECT_EQ(run.bytesRead, package.size);
  EXPECT_EQ(run.threadName, "USBReadThread");
  EXPECT_EQ(g_srcFilePath + g_dstDirPath + g_certificateFilePath + g_interesetedFileName,
            package.path + m_dest + m_signer.certFile());
  EXPECT_EQ(g_eExtractionType, EXTRACTION_FULL);
  EXPECT_FALSE(CheckParticularFileExtraction() || g_bAbortExecution || g_isExtractionCompleted);
  EXPECT_TRUE(g_vectorOfTHashAndWriteBuffer.empty());
  EXPECT_EQ(g_hashResult, m_expected);
  uint32_t filesFinished = 0;
  EXPECT_EQ(GetExtractionStage(&filesFinished), EXTRACTION_STAGE_DONE);
  EXPECT_EQ(filesFinished, 6u);
  ASSERT_NE(g_objKALU_Version_TPN, nullptr);
  EXPECT_EQ(g_objKALU_Version_TPN->m_nFileCount, 6);  // a fresh object, parsed once
  EXPECT_EQ(g_objKALU_Version_TPN->m_strPartNumber, "TP-4711");
}

// The report's path is shared by every user of the machine: a directory
// there, or a link, FIFO or second name of a file that another user planted,
// is not written through. The failed open is reported; the status stands.
TEST_F(RunTest, UnwritableErrorReportIsReportedAndTheStatusKept) {
  const std::string victim = m_dir.file("victim");
  testsupport::WriteFile(victim, "victim");
  const std::pair<std::function<int()>, int> planted[] = {
      {[] { return mkdir(kErrorReportPath, 0700); }, EISDIR},
      {[&] { return symlink(victim.c_str(), kErrorReportPath); }, ELOOP},
      {[] { return mkfifo(kErrorReportPath, 0600); }, ENXIO},
      {[&] { return link(victim.c_str(), kErrorReportPath); }, EMLINK}};
  for (const auto& plant : planted) {
    remove(kErrorReportPath);
    ASSERT_EQ(plant.first(), 0);
    testsupport::OutputCapture output;
    EXPECT_EQ(ExtractWithHash(m_signer.certFile().c_str(), m_dir.file("none").c_str(),
                              m_dest.c_str(), nullptr, false),
              PKG_ERR03);
    remove(kErrorReportPath);
    EXPECT_NE(output.Finish().find("fopen failed: /tmp/extract_verify_error.txt " +
                                   std::to_string(plant.second) + "Error No :  38 / "),
              std::string::npos);
    EXPECT_EQ(ReadFile(victim), "victim");
  }
}

}  // namespace
}  // namespace runtest
