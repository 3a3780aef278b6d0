// End-to-end runs that fail or stop early. Every case in which the extract
// thread stops taking chunks before the end of the package runs with a
// package far larger than the read ring, with the source reader blocked on
// the full ring when the extract thread goes on: the run must end, with the
// status of its case.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "extract_verify.h"
#include "platform/log.h"
#include "testing/seams.h"
#include "tests/extract/run_fixture.h"

namespace runtest {
namespace {

using package::Entry;
using testsupport::FileExists;
using testsupport::PackageOptions;
using testsupport::ReadFile;
using testsupport::SignedManifest;

TEST_F(ExtractionRunTest, MissingSourceFailsBeforeAnyThreadStarts) {
  RunResult run = Run(m_dir.file("no-such-package.tar.gz"));

  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_EQ(ErrorReport(), "PKG_ERR03");
  ExpectInOrder(run.output, {"Extraction Type: 1\n", "Error: open64() failed. Error no: 2\n",
                             "Error No :  38 / PKG_ERR03\n", "Total Consumed Time = "});
  EXPECT_FALSE(run.Printed("Wait extractTid"));
  EXPECT_FALSE(run.Logged(kLogInfo, "extractThread", "+"));
  uint64_t read = 0;
  uint64_t size = 0;
  EXPECT_FALSE(GetExtractionProgress(&read, &size));
  EXPECT_TRUE(run.Logged(kLogError, "copyWithHash", "Error: open64() failed. Error no: 2 "));
  EXPECT_TRUE(run.Logged(kLogError, "ExtractWithHash", "Error No :  38 / PKG_ERR03 "));
  EXPECT_TRUE(run.Logged(kLogInfo, "ExtractWithHash", "-"));
}

// The report's path is shared by every user of the machine: a directory
// there, or a link, FIFO or second name of a file that another user planted,
// is not written through. The failed open is reported; the status stands.
TEST_F(ExtractionRunTest, UnwritableErrorReportIsReportedAndKeepsTheStatus) {
  const std::string victim = m_dir.file("victim");
  testsupport::WriteFile(victim, "victim");
  const std::vector<std::pair<std::function<int()>, int>> planted = {
      {[] { return mkdir(kErrorReportPath, 0700); }, EISDIR},
      {[&] { return symlink(victim.c_str(), kErrorReportPath); }, ELOOP},
      {[] { return mkfifo(kErrorReportPath, 0600); }, ENXIO},
      {[&] { return link(victim.c_str(), kErrorReportPath); }, EMLINK}};
  for (const auto& plant : planted) {
    remove(kErrorReportPath);
    ASSERT_EQ(plant.first(), 0);
    RunResult run;
    {
      testsupport::OutputCapture output;
      run.status = ExtractWithHash(certFile().c_str(), m_dir.file("none").c_str(),
                                   m_dest.c_str(), nullptr, false);
      run.output = output.Finish();
    }
    remove(kErrorReportPath);
    EXPECT_EQ(run.status, PKG_ERR03);
    EXPECT_TRUE(run.Printed("fopen failed: /tmp/extract_verify_error.txt " +
                            std::to_string(plant.second) + "Error No :  38 / "))
        << plant.second;
    EXPECT_EQ(ReadFile(victim), "victim");
  }
}

// The archive reader refuses the package when it opens it; a large one is
// not read to its end.
TEST_F(ExtractionRunTest, SourceThatIsNoArchiveFailsWithAPackageError) {
  for (uint64_t size : {uint64_t{0}, kLargePackageBytes}) {
    testsupport::WriteFile(m_dir.file("package.tar.gz"), package::GenerateContent(size, 4));
    RunResult run = Run(m_dir.file("package.tar.gz"));
    EXPECT_EQ(run.status, PKG_ERR03) << size;
    EXPECT_TRUE(run.Printed("File size : " + std::to_string(size) + " Bytes\n"));
    const char kRefused[] = "Failed to create archive file: (-30) (Unrecognized archive format)";
    EXPECT_TRUE(run.Printed(std::string(kRefused) + "\n"));
    EXPECT_TRUE(run.Logged(kLogError, "extractThread", kRefused));
    EXPECT_EQ(ErrorReport(), "PKG_ERR03");
    EXPECT_LE(run.bytesRead, std::min<uint64_t>(size, uint64_t{8} << 20));
  }
}

TEST_F(ExtractionRunTest, PackageWithoutManifestFailsTheComparison) {
  auto package = Build({Entry::File("a", "a\n")});

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, VER_ERR01);
  EXPECT_EQ(ReadFile(Out("a")), "a\n");
  EXPECT_EQ(ErrorReport(), "VER_ERR01");
  EXPECT_TRUE(run.Printed("Error No :  19 / VER_ERR01\n"));
}

TEST_F(ExtractionRunTest, ComparisonReportsOnlyTheFirstFailingFile) {
  PackageOptions missingAndWrong;
  missingAndWrong.leftOutOfManifest = {"b"};
  missingAndWrong.hashOverrides = {{"c", std::string(64, '0')}};
  // The manifest comes last: the files are judged by their digests alone.
  auto package = Build({Entry::File("c", "c\n"), Entry::File("b", "b\n"),
                        Entry::File("a", "a\n"), SignedManifest()},
                       missingAndWrong);
  RunResult run = Run(package.path);
  EXPECT_EQ(run.status, SIGN_ERR02);
  EXPECT_EQ(ErrorReport(), "SIGN_ERR02");
  EXPECT_TRUE(run.Printed("!!!! File Not Found in Version.inf - [File Name] b \n"));
  EXPECT_FALSE(run.Printed("[File Name] c"));

  PackageOptions uppercase;
  std::string digest = package::Sha256Hex("c\n");
  for (char& c : digest) c = static_cast<char>(toupper(c));
  uppercase.hashOverrides = {{"c", digest}};
  package = Build({SignedManifest(), Entry::File("a", "a\n"), Entry::File("c", "c\n")}, uppercase);
  run = Run(package.path);
  EXPECT_EQ(run.status, SIGN_ERR02);
  ExpectInOrder(run.output, {"HashValues are Same - [File Name] a \n",
                             "!!!! HashValue Mismatch Error - [File Name] c \n",
                             "Version Inf Hash Value    : " + digest + " \n",
                             "Error No :  41 / SIGN_ERR02\n"});
}

TEST_F(ExtractionRunTest, EntryInAMissingSubdirectoryFailsItsWriterAndTheRun) {
  auto package = Build({SignedManifest(), Entry::File("a", "a\n"),
                        Entry::Generated("missing/b", 40000, 5)});

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_EQ(ReadFile(Out("a")), "a\n");
  EXPECT_TRUE(run.Printed("Failed to write content: "));
  EXPECT_EQ(ErrorReport(), "PKG_ERR03");
}

TEST_F(ExtractionRunTest, MissingDestinationLeavesTheManifestUnreadable) {
  auto package = Build({SignedManifest(), Entry::File("a", "a\n")});
  m_dest = m_dir.file("no-such-directory");

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, VER_ERR01);
  EXPECT_TRUE(run.Printed("Error: Version Inf Parsing Failed. Status :19 / VER_ERR01\n"));
  EXPECT_FALSE(run.Printed("Extracting file Name : a\n"));
  EXPECT_EQ(ErrorReport(), "VER_ERR01");
}

TEST_F(ExtractionRunTest, CorruptManifestEntryFailsTheSignatureCheck) {
  PackageOptions corrupt;
  corrupt.versionDer = package::GenerateContent(1500, 9);
  auto package = Build({SignedManifest(), Entry::File("a", "a\n")}, corrupt);

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, SIGN_ERR01);
  EXPECT_TRUE(run.Printed("Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01\n"));
  EXPECT_TRUE(run.Logged(kLogError, "extractThread",
                         "Error: Open SSL Verification Failed. Status :40 / SIGN_ERR01 "));
  EXPECT_FALSE(FileExists(Out("a")));
  EXPECT_TRUE(g_hashResult.empty());
}

// A case in which the extract thread stops taking chunks before the end of a
// large package, and what its run must show besides its status.
struct StoppedEarlyCase {
  std::string name;
  std::vector<Entry> entries;
  _KALU_Error status = KALU_ERR;
  PackageOptions options;
  const char* interested = nullptr;
  bool abortWhileStalled = false;
  std::vector<std::string> printedInOrder;
  std::vector<std::string> notPrinted;
  std::vector<testsupport::LogLine> logged;
  std::map<std::string, std::string> written;  // file -> content
  std::vector<std::string> absent;
  std::string errorReport;  // checked when set
  std::function<void()> more;
};

TEST_F(ExtractionRunTest, RunsThatStopBeforeTheEndEndWithTheStatusOfTheirCase) {
  std::vector<StoppedEarlyCase> cases;
  auto add = [&](const std::string& name, std::vector<Entry> entries,
                 _KALU_Error status) -> StoppedEarlyCase& {
    cases.push_back({});
    cases.back().name = name;
    cases.back().entries = std::move(entries);
    cases.back().status = status;
    return cases.back();
  };
  const Entry a = Entry::File("a", "a\n");
  const std::string negativeSize = "Error: archive_entry_size(entry) returns negative value";

  // An untrusted signature abandons the files already started.
  testsupport::TestSigner stranger(m_dir.file("stranger.pem"));
  StoppedEarlyCase* c = &add("untrusted signature",
                             {a, SignedManifest(), LargeEntry("large")}, SIGN_ERR01);
  c->options.versionDer = stranger.Sign("File1=stall.bin\n");
  c->printedInOrder = {"Extracting file Name : a\n"};
  c->notPrinted = {"Extracting file Name : large"};
  c->more = [] { EXPECT_TRUE(g_hashResult.empty()); };

  c = &add("manifest failing its parsing", {SignedManifest(), LargeEntry("large")}, VER_ERR04);
  c->options.manifestText = "Type=Full\nFile1=large\nFile2 Hash Value=00\n";
  c->printedInOrder = {"Error: Version Inf Parsing Failed. Status :22 / VER_ERR04\n"};
  c->errorReport = "VER_ERR04";

  for (const Entry& empty : {Entry::Directory("dir"), Entry::File("empty", "")}) {
    c = &add("empty entry " + empty.name, {SignedManifest(), a, empty, LargeEntry("large")},
             PKG_ERR03);
    c->printedInOrder = {negativeSize + " \n"};
    c->logged = {{kLogError, "extractThread", negativeSize}};
    c->written = {{"a", "a\n"}};
    c->errorReport = "PKG_ERR03";
  }

  // Nothing failed: what was written is compared and matches.
  c = &add("\"..\" in a name",
           {SignedManifest(), a, Entry::File("file..txt", "x\n"), LargeEntry("large")},
           KALU_NO_ERR);
  c->printedInOrder = {"Zip: Entry file name contains - \"..\" \n",
                       "HashValues are Same - [File Name] a \n"};
  c->notPrinted = {"Extracting file Name : large"};
  c->absent = {"file..txt"};
  // ... but the package was not written whole, which the client can ask.
  c->more = [] {
    testsupport::OutputCapture output;
    EXPECT_EQ(CheckExtractionCompleteness(), SIGN_ERR02);
    EXPECT_EQ(output.Finish(), "!!!! File Not Extracted - [File Name] file..txt \n");
  };

  c = &add("single file after the manifest",
           {SignedManifest(), a, Entry::File("b", "b\n"), LargeEntry("large")}, KALU_NO_ERR);
  c->interested = "b";
  c->printedInOrder = {"Skipped File : a  from Extraction\n", "Extracting file Name : b\n",
                       "HashValues are Same - [File Name] b \n"};
  c->notPrinted = {"Skipped File : large"};
  c->written = {{"b", "b\n"}};
  c->absent = {"a"};
  c->more = [] {
    EXPECT_EQ(g_isExtractionCompleted.load(), 1);
    EXPECT_EQ(g_hashResult.size(), 1u);
    EXPECT_EQ(CheckExtractionCompleteness(), KALU_NO_ERR);
  };

  // Bytes after the end of the archive are not waited for.
  c = &add("bytes after the archive", {SignedManifest(), a}, KALU_NO_ERR);
  c->options.trailingBytes = kLargePackageBytes;
  c->written = {{"a", "a\n"}};

  c = &add("abort during the run", {SignedManifest(), LargeEntry("large")}, PKG_ERR03);
  c->abortWhileStalled = true;
  c->printedInOrder = {"Extraction Interrupted.\n", "Wait extractTid thread to join\n",
                       "Error No :  38 / PKG_ERR03\n"};
  c->logged = {{kLogInfo, "copyWithHash", "Extraction Interrupted."}};

  for (const StoppedEarlyCase& one : cases) {
    SCOPED_TRACE(one.name);
    ClearDestination();
    auto package = Build(one.entries, one.options);

    RunResult run = RunStalled(package.path, one.interested, [&] {
      EXPECT_EQ(GetExtractionStage(nullptr), EXTRACTION_STAGE_READING);
      if (one.abortWhileStalled) AbortExtraction();
    });

    EXPECT_EQ(run.status, one.status);
    // The reader was blocked on the full ring and stopped before the end.
    EXPECT_TRUE(run.stalled);
    EXPECT_GT(run.packageSize, kLargePackageBytes);
    EXPECT_LT(run.bytesRead, run.packageSize);
    ExpectInOrder(run.output, one.printedInOrder);
    for (const std::string& text : one.notPrinted) EXPECT_FALSE(run.Printed(text)) << text;
    for (const testsupport::LogLine& line : one.logged) {
      EXPECT_TRUE(run.Logged(line.level, line.function, line.text)) << line.text;
    }
    for (const auto& file : one.written) EXPECT_EQ(ReadFile(Out(file.first)), file.second);
    for (const std::string& name : one.absent) EXPECT_FALSE(FileExists(Out(name))) << name;
    if (!one.errorReport.empty()) {
      EXPECT_EQ(ErrorReport(), one.errorReport);
    }
    if (one.more) one.more();
  }
}

TEST_F(ExtractionRunTest, ReadFailureEndsTheRunWithAPackageError) {
  auto package = Build({SignedManifest(), LargeEntry("large")});
  platform::InjectReadFailureAfter(int64_t{6} << 20);

  RunResult run = Run(package.path);
  platform::InjectReadFailureAfter(-1);

  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Failed to read contents\n"));
  EXPECT_TRUE(run.Logged(kLogInfo, "copyWithHash", "Failed to read contents "));
  EXPECT_TRUE(run.Printed("Problem extracting file\n"));
  EXPECT_LT(run.bytesRead, run.packageSize);
}

}  // namespace
}  // namespace runtest
