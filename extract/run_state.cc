#include "extract/run_state_internal.h"
#include "extract_verify/extract_verify.h"
#include "extract_verify/extraction.h"
#include "platform/clock.h"

namespace platform = ev::platform;

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

namespace {

std::atomic<bool> g_bProgressKnown{false};
std::atomic<uint64_t> g_ullProgressBytesRead{0};
std::atomic<uint64_t> g_ullProgressPackageSize{0};
std::atomic<EV_ExtractionStage> g_eStage{EXTRACTION_STAGE_IDLE};
std::atomic<uint32_t> g_uFilesFinished{0};

}  // namespace

namespace ev::extract_progress {

void Begin() {
  g_bProgressKnown = false;
  g_ullProgressBytesRead = 0;
  g_ullProgressPackageSize = 0;
  g_uFilesFinished = 0;
  g_eStage = EXTRACTION_STAGE_READING;
}

void SourceOpened(uint64_t packageSize) {
  g_ullProgressPackageSize = packageSize;
  g_bProgressKnown = true;
}

void BytesRead(uint64_t total) { g_ullProgressBytesRead = total; }

void ReadingDone() { g_eStage = EXTRACTION_STAGE_FINISHING; }

void FileFinished() { ++g_uFilesFinished; }

void RunDone() { g_eStage = EXTRACTION_STAGE_DONE; }

}  // namespace ev::extract_progress

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

EV_ExtractionStage GetExtractionStage(uint32_t* filesFinished) {
  if (filesFinished != nullptr) *filesFinished = g_uFilesFinished;
  return g_eStage;
}
