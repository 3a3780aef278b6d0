// End-to-end runs, one table: every extraction type, the comparison's
// verdicts, unusable sources, failures of the signature, the manifest and the
// writers, entries built to escape the destination or to fool the checks, and
// runs that stop before the end of a package larger than the read ring (the
// reader blocked on the full ring). Every run also passes the fixture's
// checks (run_fixture.h).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "extract/completeness.h"
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
  std::function<void()> prepare = nullptr;              // after the build, before the run
  std::function<void()> more = nullptr;                 // after the run
};

void ExpectInOrder(const std::string& output, const std::vector<std::string>& texts) {
  size_t at = 0;
  for (const std::string& text : texts) {
    at = output.find(text, at);
    ASSERT_NE(at, std::string::npos) << "\"" << text << "\" missing or out of order in:\n"
                                     << output;
  }
}

Entry Large(const std::string& name) { return Entry::Generated(name, kLargePackageBytes, 0xb16); }

TEST_F(RunTest, EachCaseEndsWithItsStatusOutputAndFiles) {
  std::vector<Case> cases;
  auto add = [&](const std::string& name, std::vector<Entry> entries, _KALU_Error status) {
    cases.push_back({name, std::move(entries), status});
    return &cases.back();
  };
  const Entry a = Entry::File("a", "a\n"), b = Entry::File("b", "b\n"), c = Entry::File("c", "c\n");
  const std::string digestA = package::Sha256Hex("a\n"), digestC = package::Sha256Hex("c\n");
  std::string upperC = digestC;
  for (char& x : upperC) x = static_cast<char>(toupper(x));
  const std::string package = m_dir.file("package.tar.gz");
  auto append = [&](const std::string& bytes) {
    return [&, bytes] { testsupport::WriteFile(package, ReadFile(package) + bytes); };
  };

  Case* k = add("single file, manifest after it", {a, b, SignedManifest(), c}, KALU_NO_ERR);
  k->run.interested = "b";
  k->printed = {"Extraction Type: 2\n", "Skipped File : a  from Extraction\n",
                "Extracting file Name : b\n", "Extracting file Name : Version.der\n",
                "Skipped File : c  from Extraction\n"};
  k->logged = {"23:extractThread:Skipped File : c  from Extraction"};
  k->written = {{"b", "b\n"}};
  k->absent = {"a", "c"};
  k->more = [] { EXPECT_TRUE(CheckParticularFileExtraction() && g_hashResult.size() == 1); };
  k = add("exclude", {SignedManifest(), a, b, c}, KALU_NO_ERR);
  k->run = {"b", true};
  k->printed = {"Extraction Type: 3\n", "Excluded File : b  from Extraction\n"};
  k->logged = {"23:extractThread:Excluded File : b  from Extraction"};
  k->written = {{"a", "a\n"}, {"c", "c\n"}};
  k->absent = {"b"};
  k = add("empty name selects nothing", {SignedManifest(), a, b}, KALU_NO_ERR);
  k->run.interested = "";
  k->printed = {"Skipped File : a  from Extraction\n", "Skipped File : b  from Extraction\n"};
  k->more = [] {
    EXPECT_FALSE(CheckParticularFileExtraction());
    EXPECT_EQ(CheckExtractionCompleteness(), SIGN_ERR02);  // the file asked for is not there
  };
  // The comparison prints and logs every match and the first failure, in name
  // order; a digest differing only in case is a mismatch.
  k = add("digest in upper case", {SignedManifest(), a, c}, SIGN_ERR02);
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
  k = add("file not in the manifest", {c, b, a, SignedManifest()}, SIGN_ERR02);
  k->options.leftOutOfManifest = {"b"};
  k->options.hashOverrides = {{"c", std::string(64, '0')}};
  k->printed = {
      "!!!! File Not Found in Version.inf - [File Name] b \nExtracted file Hash Value : " +
      package::Sha256Hex("b\n") + " \n"};
  k->logged = {"23:compareHashValues:!!!! File Not Found in Version.inf - [File Name] b  "};
  k->notPrinted = {"[File Name] c"};
  add("no manifest", {a}, VER_ERR01)->written = {{"a", "a\n"}};

  // Sources that cannot be opened, read or unpacked; a large one is not read
  // to its end.
  k = add("missing source", {}, PKG_ERR03);
  k->prepare = [&] { unlink(package.c_str()); };
  k->printed = {"Extraction Type: 1\n", "Error: open64() failed. Error no: 2\n",
                "Total Consumed Time = "};
  k->notPrinted = {"Wait extractTid"};
  k->logged = {"31:copyWithHash:Error: open64() failed. Error no: 2 ", "23:ExtractWithHash:-"};
  const std::string refused = "Failed to create archive file: (-30) (Unrecognized archive format)";
  k = add("no archive", {}, PKG_ERR03);
  k->prepare = [&] {
    testsupport::WriteFile(package, package::GenerateContent(kLargePackageBytes, 4));
  };
  k->printed = {"File size : " + std::to_string(kLargePackageBytes) + " Bytes\n", refused + "\n"};
  k->logged = {"31:extractThread:" + refused};
  k = add("broken gzip member after the stream", {SignedManifest(), a}, PKG_ERR03);
  k->prepare = append(std::string("\x1f\x8b\x08\x00garbage after it", 21));
  k->printed = {"Failed to create archive file: (-30) (gzip decompression failed)\n"};
  // An archive after the end marker is inflated but never read.
  k = add("archive appended", {SignedManifest(), a}, KALU_NO_ERR);
  k->prepare = append(package::GzipCompress(package::WritePackageToMemory(
      {Entry::File("evil", "evil\n")}, {package::TarFormat::kPaxRestricted, false})));
  k->absent = {"evil"};

  // Writers that fail keep taking chunks: the entry is larger than its ring.
  k = add("missing subdirectory", {SignedManifest(), a, Large("missing/b")}, PKG_ERR03);
  const std::string writeFailed = "Failed to write content: " + std::to_string(EBADF) + " 0\n";
  k->printed = {writeFailed};
  k->logged = {"31:writerThread:" + writeFailed};
  k->written = {{"a", "a\n"}};
  // An absolute name stays below the destination, where its directories are missing.
  add("absolute name", {SignedManifest(), Entry::File(m_sentinel + "/evil", "evil\n")}, PKG_ERR03);
  // "<destination>/<name>" is cut to the path buffer; the digest is still
  // recorded under the whole name, which the manifest lists.
  const std::string longName(300, 'n');
  const std::string cut = (Out(longName)).substr(0, 254).substr(m_dest.size() + 1);
  k = add("long name", {SignedManifest(), Entry::File(longName, "long\n")}, KALU_NO_ERR);
  k->prepare = [&] { m_expected = {{cut, package::Sha256Hex("long\n")}}; };
  k->written = {{cut, "long\n"}};
  // A link, FIFO or device carries no data even when its header claims some
  // (the claimed bytes, the next header and its block, are skipped): it ends
  // the run like an empty entry, before a file that would pass through it.
  for (const Entry& special :
       {Entry::Symlink("link", m_sentinel), Entry::Symlink("up", "../sentinel"),
        Entry::HardLink("hard", "a"), Entry::Fifo("fifo"), Entry::CharDevice("null", 1, 3)}) {
    for (uint64_t claimed : {0, 1024}) {
      k = add(special.name + " claiming " + std::to_string(claimed),
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
  // After the manifest a size other than the signed one, or a name it does
  // not list, is refused before a byte is written; before it, the file is
  // written (everything after its header is its data, up to the end) and its
  // size judged at the end by the same rule.
  for (bool manifestFirst : {true, false}) {
    for (int64_t declared : {int64_t{69999}, int64_t{70001}, (int64_t{1} << 33) - 1}) {
      const bool beyond = declared > 70001;
      k = add("declared size " + std::to_string(declared),
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
  k = add("file not listed", {SignedManifest(), a, b}, SIGN_ERR02);
  k->options.leftOutOfManifest = {"b"};
  k->printed = {"Error: entry b refused: not listed in the signed manifest\n"};
  k->absent = {"b"};
  // The verified manifest on disk is never replaced, even by a signed entry.
  for (const std::string name : {"Version.inf", "./Version.inf"}) {
    k = add("entry over the manifest file", {SignedManifest(), a, Entry::File(name, "File1=a\n")},
            PKG_ERR03);
    if (name[0] == '.') k->options.leftOutOfManifest = {name};
    k->printed = {"Error: entry " + name + " refused: its path is that of the verified manifest\n"};
    k->more = [&] { EXPECT_EQ(ReadFile(Out("Version.inf")), m_manifestText); };
  }
  // A link placed in the destination before the run is not written through:
  // the file fails as when its directory is missing; Version.inf is made anew.
  const std::string victim = m_dir.file("victim");
  for (const char* link : {"b", "Version.inf"}) {
    k = add(std::string("link planted as ") + link, {SignedManifest(), a, b},
            link[0] == 'b' ? PKG_ERR03 : KALU_NO_ERR);
    k->prepare = [&, link] {
      testsupport::WriteFile(victim, "victim\n");
      symlink(victim.c_str(), Out(link).c_str());
      m_planted = {link};
    };
    k->printed = {link[0] == 'b' ? writeFailed : ""};
    k->more = [&] {
      EXPECT_EQ(ReadFile(victim), "victim\n");
      m_planted.clear();
    };
  }
  // A second entry over a signed one: the first digest is kept and the file
  // on disk no longer matches it; the same data twice passes.
  std::vector<Entry> twice = {SignedManifest(), Entry::Generated("dup", 100000, 1), b};
  PackageOptions signedOnce;
  signedOnce.manifestText =
      testsupport::BuildSignedPackage(m_signer, m_dir.file("p"), twice).manifestText;
  twice.push_back(Entry::Generated("dup", 100000, 2));  // the signed size
  k = add("second entry of a name", twice, PKG_ERR03);
  k->options = signedOnce;
  k->printed = {"Error: " + Out("dup") + " written twice with different contents\n"};
  k->more = [&] { EXPECT_EQ(g_hashResult["dup"], m_expected["dup"]); };
  twice.back() = twice[1];
  add("same entry twice", twice, KALU_NO_ERR)->options = signedOnce;
  // A second manifest from the same signer, as an entry or after the first
  // 4096 bytes of the one entry, would merge another package's file list.
  // The first stays the verified Version.inf on disk.
  const std::string otherText =
      "Version Number=0.9\nFile1=a\nFile1 Hash Value=" + package::Sha256Hex("old\n") +
      "\nFile1 Size=4\n";
  const std::string other = m_signer.Sign(otherText);
  for (bool inOneEntry : {false, true}) {
    k = add("second manifest", {SignedManifest(), Entry::File("a", "old\n")}, SIGN_ERR01);
    if (inOneEntry) {
      std::string own = m_signer.Sign("Version Number=1.0\n");
      own.resize(4096, '\0');
      k->options.versionDer = own + other;
    } else {
      k->entries.insert(k->entries.begin(), Entry::File("Version.der", other));
    }
    k->options.leftOutOfManifest = {"a"};
    k->printed = {"Error: more than one signed manifest in the package\n",
                  "Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01\n"};
    k->absent = {"a"};
    k->more = [&, inOneEntry] {
      EXPECT_EQ(ReadFile(Out("Version.inf")), inOneEntry ? "Version Number=1.0\n" : otherText);
    };
  }

  // The extract thread stops taking chunks before the end of a large package.
  const size_t firstStalled = cases.size();
  testsupport::TestSigner stranger(m_dir.file("stranger.pem"));
  k = add("untrusted signature", {a, SignedManifest(), Large("large")}, SIGN_ERR01);
  k->options.versionDer = stranger.Sign("File1=large\n");
  k->printed = {"Extracting file Name : a\n",
                "Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01\n"};
  k->logged = {"31:extractThread:Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01 "};
  k->notPrinted = {"Extracting file Name : large"};
  k->more = [] { EXPECT_TRUE(g_hashResult.empty()); };
  k = add("manifest failing its parsing", {SignedManifest(), Large("large")}, VER_ERR04);
  k->options.manifestText = "Type=Full\nFile1=large\nFile2 Hash Value=00\n";
  k->printed = {"KALU Error 22 \n", "Error: Version Inf Parsing Failed. Status :22 / VER_ERR04\n"};
  k->logged = {"31:PrintKALU_VersionParse_TPN:KALU Error 22 \n"};
  // The size is judged before the name: an empty entry whose name holds ".."
  // ends the run as empty, not as a name that stops the walk.
  for (const Entry& empty : {Entry::Directory("dir"), Entry::File("em..pty", "")}) {
    k = add("empty entry", {SignedManifest(), a, empty, Large("large")}, PKG_ERR03);
    k->logged = {"31:extractThread:" + kNoData};
    k->written = {{"a", "a\n"}};
  }
  k = add("\"..\" in a name", {SignedManifest(), a, Entry::File("f..txt", "x\n"), Large("l")},
          KALU_NO_ERR);
  k->printed = {"Zip: Entry file name contains - \"..\" \n",
                "HashValues are Same - [File Name] a \n"};
  k->notPrinted = {"Extracting file Name : l"};
  k->absent = {"f..txt"};
  k->more = [] {  // ... but the package was not written whole, which the client can ask
    testsupport::OutputCapture output;
    EXPECT_EQ(CheckExtractionCompleteness(), SIGN_ERR02);
    EXPECT_EQ(output.Finish(), "!!!! File Not Extracted - [File Name] f..txt \n");
  };
  k = add("single file found", {SignedManifest(), a, b, Large("large")}, KALU_NO_ERR);
  k->run.interested = "b";
  k->notPrinted = {"Skipped File : large"};
  k->more = [] {
    EXPECT_EQ(g_isExtractionCompleted.load(), 1);
    EXPECT_EQ(CheckExtractionCompleteness(), KALU_NO_ERR);
  };
  // Read to their end only where libarchive inflates: an inflating reader
  // stops at the end of the gzip stream.
  k = add("bytes after the archive", {SignedManifest(), a}, KALU_NO_ERR);
  k->options.trailingBytes = kLargePackageBytes;
  if (EV_HAVE_ISAL) k->stage = EXTRACTION_STAGE_FINISHING;
  // A package read to its end while Version.der waits: the run is not over.
  k = add("package read, run not over", {SignedManifest(), a, b}, KALU_NO_ERR);
  k->stage = EXTRACTION_STAGE_FINISHING;
  k->more = [] {
    uint32_t filesFinished = 0;
    EXPECT_EQ(GetExtractionStage(&filesFinished), EXTRACTION_STAGE_DONE);
    EXPECT_EQ(filesFinished, 2u);
  };
  k = add("abort", {SignedManifest(), Large("large")}, PKG_ERR03);
  k->run.duringRun = AbortExtraction;
  k->printed = {"Extraction Interrupted.\n", "Wait extractTid thread to join\n"};
  k->logged = {"23:copyWithHash:Extraction Interrupted."};
  for (size_t i = firstStalled; i < cases.size(); ++i) cases[i].run.stall = true;

  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    ClearDestination();
    Build(one.entries, one.options);
    if (one.prepare) one.prepare();
    RunResult run = Run(package, one.run);
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
    if (one.more) one.more();
  }
}

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
