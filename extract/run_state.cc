#include "extract/run_state.h"

#include <cerrno>
#include <cstdio>

#include "extract/hash_compare.h"
#include "extract/run_state_internal.h"
#include "extract/source_reader.h"
#include "platform/clock.h"
#include "platform/log.h"

std::string g_certificateFilePath;
std::string g_srcFilePath;
std::string g_dstDirPath;
std::string g_interesetedFileName;
int32_t g_eExtractionType = EXTRACTION_FULL;
std::atomic<unsigned char> g_bAbortExecution{0};
std::atomic<unsigned char> g_isExtractionCompleted{0};
std::map<std::string, std::string> g_hashResult;
std::vector<HashAndWriteBuffer*> g_vectorOfTHashAndWriteBuffer;
EV_Version_TPN* g_objKALU_Version_TPN = nullptr;

unsigned char g_bFirstArchiveRead = 1;

namespace {

const char kErrorReportPath[] = "/tmp/extract_verify_error.txt";

std::atomic<bool> g_bProgressKnown{false};
std::atomic<uint64_t> g_ullProgressBytesRead{0};
std::atomic<uint64_t> g_ullProgressPackageSize{0};

}  // namespace

namespace extract_progress {

void Begin() {
  g_bProgressKnown = false;
  g_ullProgressBytesRead = 0;
  g_ullProgressPackageSize = 0;
}

void SourceOpened(uint64_t packageSize) {
  g_ullProgressPackageSize = packageSize;
  g_bProgressKnown = true;
}

void BytesRead(uint64_t total) { g_ullProgressBytesRead = total; }

}  // namespace extract_progress

_KALU_Error ExtractWithHash(const char* certFilePath, const char* srcFilePath,
                            const char* dstDirPath, const char* interestedFileName,
                            bool exclude) {
  _KALU_Error status = KALU_NO_ERR;
  EV_LOG_ENTER();
  ResetGlobalVariables();
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

  if (status == KALU_NO_ERR) status = compareHashValues();
  if (status != KALU_NO_ERR) {
    // Clients look for the name of a failing status in the report file.
    const char* name = CKALUStatus::EnumToStr(status);
    FILE* report = fopen(kErrorReportPath, "w");
    if (report == nullptr) {
      int error = errno;
      printf("fopen failed: /tmp/extract_verify_error.txt %d", error);
      EV_LOG_ERROR("fopen failed: /tmp/extract_verify_error.txt %d ", error);
    } else {
      fprintf(report, "%s", name);
      fclose(report);
    }
    printf("Error No :  %d / %s\n", status, name);
    EV_LOG_ERROR("Error No :  %d / %s ", status, name);
  }

  printf("Total Consumed Time = %f \n", elapsedMs);
  EV_LOG_INFO("Total Consumed Time = %f ", elapsedMs);
  EV_LOG_LEAVE();
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

// Kept as entry points for clients; the ring sizes are fixed.
void InitExtractWithHash() {}
void SetBufferSize() {}

void AbortExtraction() { g_bAbortExecution = 1; }

bool CheckParticularFileExtraction() { return g_interesetedFileName.length() != 0; }

void ResetGlobalVariables() {
  g_dstDirPath.clear();
  g_srcFilePath.clear();
  g_certificateFilePath.clear();
  g_interesetedFileName.clear();

  delete g_objKALU_Version_TPN;
  g_objKALU_Version_TPN = nullptr;  // not left dangling if the allocation throws
  g_objKALU_Version_TPN = new EV_Version_TPN();

  g_hashResult.clear();
  // The buffers themselves were freed by the run that made them.
  std::vector<HashAndWriteBuffer*>().swap(g_vectorOfTHashAndWriteBuffer);

  g_eExtractionType = EXTRACTION_FULL;
  g_isExtractionCompleted = 0;
  g_bAbortExecution = 0;
  g_bFirstArchiveRead = 1;
}

double ticksPerSecond() {
  static const double rate = static_cast<double>(platform::CyclesPerSecond());
  return rate;
}

bool GetExtractionProgress(uint64_t* bytesRead, uint64_t* packageSize) {
  if (!g_bProgressKnown) return false;
  *bytesRead = g_ullProgressBytesRead;
  *packageSize = g_ullProgressPackageSize;
  return true;
}
