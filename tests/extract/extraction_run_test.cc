// End-to-end runs that succeed: every extraction type, entry order, file
// sizes around the chunk size, and the run state a run leaves behind.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "extract/completeness.h"
#include "extract/run_state.h"
#include "platform/log.h"
#include "tests/extract/run_fixture.h"

namespace runtest {
namespace {

using package::Entry;
using testsupport::EntryData;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::SignedManifest;

const uint32_t kChunk = 32768;

// Each extraction type in turn, in one process: a single file with the
// manifest after it runs to the end skipping the rest, an exclude run writes
// everything but the named file, and a full run writes every file in order
// and leaves its state behind until the next run.
TEST_F(ExtractionRunTest, EachExtractionTypeWritesItsFilesAndRunsStartFromTheSameState) {
  auto single = Build({Entry::File("a", "a\n"), Entry::File("b", "b\n"), SignedManifest(),
                       Entry::File("c", "c\n")});
  RunResult run = Run(single.path, "b");
  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_EQ(ReadFile(Out("b")), "b\n");
  EXPECT_FALSE(FileExists(Out("a")));
  EXPECT_FALSE(FileExists(Out("c")));
  ExpectInOrder(run.output, {"Extraction Type: 2\n", "Skipped File : a  from Extraction\n",
                             "Extracting file Name : b\n", "Extracting file Name : Version.der\n",
                             "Skipped File : c  from Extraction\n"});
  EXPECT_TRUE(run.Logged(kLogInfo, "extractThread", "Skipped File : c  from Extraction"));
  EXPECT_EQ(g_isExtractionCompleted.load(), 0);
  EXPECT_EQ(g_eExtractionType, EXTRACTION_SINGLE_FILE);
  EXPECT_TRUE(CheckParticularFileExtraction());
  EXPECT_EQ(g_hashResult.size(), 1u);

  ClearDestination();
  auto exclude = Build({SignedManifest(), Entry::File("a", "a\n"), Entry::File("b", "b\n"),
                        Entry::File("c", "c\n")});
  run = Run(exclude.path, "b", true);
  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_TRUE(FileExists(Out("a")));
  EXPECT_FALSE(FileExists(Out("b")));
  EXPECT_TRUE(FileExists(Out("c")));
  EXPECT_TRUE(run.Printed("Extraction Type: 3\n"));
  EXPECT_TRUE(run.Printed("Excluded File : b  from Extraction\n"));
  EXPECT_TRUE(run.Logged(kLogInfo, "extractThread", "Excluded File : b  from Extraction"));
  EXPECT_EQ(g_hashResult.count("b"), 0u);
  EXPECT_TRUE(CheckParticularFileExtraction());

  // A full run after a selective one and an abort requested between runs,
  // which has no effect on the next run. Only the exact name Version.der is
  // the signed manifest: the names that merely contain it are plain files.
  AbortExtraction();
  ClearDestination();
  mkdir(Out("dir").c_str(), 0755);
  mkdir(Out("x").c_str(), 0755);
  std::vector<Entry> entries = {Entry::File("a.txt", "alpha\n"), SignedManifest(),
                                Entry::Generated("dir/b.bin", 70000, 2),
                                Entry::Generated("x/Version.der", 300, 3),
                                Entry::File("Version.der.bak", "b"), Entry::File("Version.derx", "x")};
  auto package = Build(entries);

  run = Run(package.path);

  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_FALSE(run.Printed("Extraction Interrupted."));
  for (const Entry& entry : entries) {
    if (entry.name != "Version.der") {
      EXPECT_EQ(ReadFile(Out(entry.name)), EntryData(entry));
    }
  }
  EXPECT_EQ(ReadFile(Out("Version.inf")), package.manifestText);
  EXPECT_EQ(ErrorReport(), kReportUntouched);
  ExpectInOrder(run.output,
                {"Extraction Type: 1\n", "Input File : " + package.path + "\n",
                 "File size : " + std::to_string(package.size) + " Bytes\n",
                 "Extracting file Name : a.txt\n", "Extracting file Name : Version.der\n",
                 "Version_Parse_INF File Location : " + Out("Version.inf") + "\n",
                 "Extracting file Name : dir/b.bin\n", "Extracting file Name : x/Version.der\n",
                 "Waiting for child threads to join\n",
                 "HashValues are Same - [File Name] a.txt \n",
                 "HashValues are Same - [File Name] dir/b.bin \n",
                 "HashValues are Same - [File Name] x/Version.der \n", "Total Consumed Time = "});
  ExpectInOrder(run.output, {"Wait extractTid thread to join\n", "HashValues are Same"});
  EXPECT_TRUE(run.Logged(kLogInfo, "ExtractWithHash", "Extraction Type: 1 "));
  EXPECT_TRUE(run.Logged(kLogInfo, "copyWithHash", " Entering While Loop "));
  EXPECT_TRUE(run.Logged(kLogInfo, "extractThread", "Extracting file Name : Version.der\n"));
  EXPECT_TRUE(run.Logged(kLogInfo, "extractThread", "Extracting file Name : a.txt"));
  EXPECT_EQ(run.bytesRead, package.size);
  EXPECT_EQ(run.readerThreadName, "USBReadThread");

  // The run's state stays until the next run.
  EXPECT_EQ(g_srcFilePath, package.path);
  EXPECT_EQ(g_dstDirPath, m_dest);
  EXPECT_EQ(g_certificateFilePath, certFile());
  EXPECT_EQ(g_eExtractionType, EXTRACTION_FULL);
  EXPECT_TRUE(g_interesetedFileName.empty());
  EXPECT_FALSE(CheckParticularFileExtraction());
  EXPECT_EQ(g_bAbortExecution.load(), 0);
  EXPECT_EQ(g_isExtractionCompleted.load(), 0);
  EXPECT_TRUE(g_vectorOfTHashAndWriteBuffer.empty());
  ASSERT_EQ(g_hashResult.size(), 5u);
  EXPECT_EQ(g_hashResult["dir/b.bin"], package::Sha256Hex(EntryData(entries[2])));
  ASSERT_NE(g_objKALU_Version_TPN, nullptr);
  EXPECT_EQ(g_objKALU_Version_TPN->m_nFileCount, 5);  // a fresh object, parsed once
  EXPECT_EQ(g_objKALU_Version_TPN->m_strPartNumber, "TP-4711");
  uint32_t filesFinished = 0;
  EXPECT_EQ(GetExtractionStage(&filesFinished), EXTRACTION_STAGE_DONE);
  EXPECT_EQ(filesFinished, 5u);
}

// A package read to its end while Version.der still waits for its
// certificate: the bytes read are complete, but the run is not.
TEST_F(ExtractionRunTest, AReadPackageIsFinishingUntilTheRunIsOver) {
  auto package = Build({SignedManifest(), Entry::File("a", "a\n"), Entry::File("b", "b\n")});
  EV_ExtractionStage stage = EXTRACTION_STAGE_IDLE;
  uint32_t filesFinished = 99;
  uint64_t read = 0;
  uint64_t size = 0;

  RunResult run = RunStalled(package.path, nullptr, [&] {
    stage = GetExtractionStage(&filesFinished);
    EXPECT_TRUE(GetExtractionProgress(&read, &size));
  });

  EXPECT_EQ(run.status, KALU_NO_ERR);
  EXPECT_TRUE(run.stalled);
  EXPECT_EQ(stage, EXTRACTION_STAGE_FINISHING);
  EXPECT_EQ(filesFinished, 0u);
  EXPECT_EQ(read, package.size);
  EXPECT_EQ(GetExtractionStage(&filesFinished), EXTRACTION_STAGE_DONE);
  EXPECT_EQ(filesFinished, 2u);
}

TEST_F(ExtractionRunTest, FilesAroundTheChunkSizeAndAboveTheFileRingAreWrittenByteForByte) {
  std::vector<Entry> entries = {
      SignedManifest(),
      Entry::Generated("one_chunk", kChunk, 10),
      Entry::Generated("three_chunks", 3 * kChunk, 11),
      Entry::Generated("chunk_and_a_byte", kChunk + 1, 12),
      Entry::Generated("one_byte", 1, 13),
      Entry::Generated("above_file_ring", (uint64_t{16} << 20) + 3 * kChunk + 7, 14, true)};
  auto package = Build(entries);

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, KALU_NO_ERR);
  for (size_t i = 1; i < entries.size(); ++i) {
    EXPECT_TRUE(ReadFile(Out(entries[i].name)) == EntryData(entries[i])) << entries[i].name;
  }
}

TEST_F(ExtractionRunTest, EmptyButPresentNameSelectsByNameAndMatchesNoEntry) {
  auto package = Build({SignedManifest(), Entry::File("a", "a\n"), Entry::File("b", "b\n")});

  RunResult single = Run(package.path, "", false);
  EXPECT_EQ(single.status, KALU_NO_ERR);
  EXPECT_TRUE(single.Printed("Extraction Type: 2\n"));
  EXPECT_TRUE(single.Printed("Skipped File : a  from Extraction\n"));
  EXPECT_TRUE(single.Printed("Skipped File : b  from Extraction\n"));
  EXPECT_FALSE(FileExists(Out("a")));
  EXPECT_FALSE(CheckParticularFileExtraction());
  EXPECT_EQ(CheckExtractionCompleteness(), SIGN_ERR02);  // the file asked for is not there

  RunResult exclude = Run(package.path, "", true);
  EXPECT_EQ(exclude.status, KALU_NO_ERR);
  EXPECT_TRUE(exclude.Printed("Extraction Type: 3\n"));
  EXPECT_FALSE(exclude.Printed("Excluded File"));
  EXPECT_EQ(ReadFile(Out("b")), "b\n");
  EXPECT_EQ(CheckExtractionCompleteness(), KALU_NO_ERR);
}

// The file on disk holds the second entry's data, or a mix of both, so the
// run fails although the first digest, which is kept, matches.
TEST_F(ExtractionRunTest, TwoEntriesOfOneNameKeepTheFirstDigestAndFailTheRun) {
  auto package = Build({SignedManifest(), Entry::File("dup", "first\n"),
                        Entry::File("dup", "other\n")});

  RunResult run = Run(package.path);

  EXPECT_EQ(run.status, PKG_ERR03);
  EXPECT_TRUE(run.Printed("Error: " + Out("dup") + " written twice with different contents\n"));
  EXPECT_EQ(g_hashResult["dup"], package::Sha256Hex("first\n"));
  EXPECT_TRUE(FileExists(Out("dup")));
}

}  // namespace
}  // namespace runtest
