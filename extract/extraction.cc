#include "extract_verify/extraction.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "extract/entry_admission.h"
#include "extract/run_state_internal.h"
#include "platform/clock.h"
#include "platform/file_io.h"
#include "platform/log.h"

namespace extract_progress = ev::extract_progress;
namespace platform = ev::platform;
using ev::ForgetUnjudgedEntries;
using ev::JudgeUnjudgedEntries;
using ev::kLogError;

namespace {

const char kErrorReportPath[] = "/tmp/extract_verify_error.txt";

// Clients look for the name of a failing status in the report file. Its path
// is shared by every user of the machine: a link, FIFO or device planted
// there is not opened, and the open's failure is reported like any other.
void WriteErrorReport(const char* name) {
  int report = platform::OpenReportFile(kErrorReportPath);
  if (report < 0) {
    int error = errno;
    printf("fopen failed: /tmp/extract_verify_error.txt %d", error);
    EV_LOG_AS("ExtractWithHash", kLogError, "fopen failed: /tmp/extract_verify_error.txt %d ",
              error);
    return;
  }
  platform::Write(report, name, strlen(name));
  platform::Close(report);
}

}  // namespace

_KALU_Error ExtractWithHash(const char* certFilePath, const char* srcFilePath,
                            const char* dstDirPath, const char* interestedFileName, bool exclude) {
  _KALU_Error status = KALU_NO_ERR;
  EV_LOG_ENTER();
  ResetGlobalVariables();
  ForgetUnjudgedEntries();
  g_certificateFilePath = certFilePath;
  g_srcFilePath = srcFilePath;
  g_dstDirPath = dstDirPath;
  if (interestedFileName == nullptr) {
    g_eExtractionType = EXTRACTION_FULL;
  } else {
    g_interesetedFileName = interestedFileName;
    g_eExtractionType = exclude ? EXTRACTION_EXCLUDE_FILE : EXTRACTION_SINGLE_FILE;
  }
  printf("Extraction Type: %d\n", g_eExtractionType);
  EV_LOG_INFO("Extraction Type: %d ", g_eExtractionType);

  // Only reading, extracting, hashing and writing are timed.
  uint64_t start = platform::ClockCycles();
  copyWithHash(status);
  uint64_t end = platform::ClockCycles();
  double elapsedMs = static_cast<double>(end - start) * 1000.0 / ticksPerSecond();

  // Files written before the manifest are held to their signed sizes as
  // the ones after it were, then every digest to the manifest's.
  if (status == KALU_NO_ERR) status = JudgeUnjudgedEntries(g_objKALU_Version_TPN);
  if (status == KALU_NO_ERR) status = compareHashValues();
  if (status != KALU_NO_ERR) {
    const char* name = CKALUStatus::EnumToStr(status);
    WriteErrorReport(name);
    printf("Error No :  %d / %s\n", status, name);
    EV_LOG_ERROR("Error No :  %d / %s ", status, name);
  }

  printf("Total Consumed Time = %f \n", elapsedMs);
  EV_LOG_INFO("Total Consumed Time = %f ", elapsedMs);
  EV_LOG_LEAVE();
  extract_progress::RunDone();
  return status;
}

_KALU_Error StartExtractWithHash(const char* certFilePath, const char* srcFilePath,
                                 const char* dstDirPath) {
  return ExtractWithHash(certFilePath, srcFilePath, dstDirPath, nullptr, false);
}

_KALU_Error StartExtractWithHash(const char* certFilePath, const char* srcFilePath,
                                 const char* dstDirPath, const char* interestedFileName,
                                 bool exclude) {
  return ExtractWithHash(certFilePath, srcFilePath, dstDirPath, interestedFileName, exclude);
}

void InitExtractWithHash() {}
void SetBufferSize() {}
