// The process-wide state of an extraction run: its globals, their reset and
// the run's progress.
//
// Only one run may be in progress in a process: the state below is global and
// belongs to the run in progress (or to the last run, until the next one
// resets it). The entry functions that start a run are in extraction.h. AbortExtraction may be called from
// any other thread during a run. The byte flags read across threads are
// atomic so that the reader, the extract thread and a client see each other's
// stores without a data race; their representation is one byte.
#ifndef EXTRACT_RUN_STATE_H_
#define EXTRACT_RUN_STATE_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "manifest/version_tpn.h"
#include "status/kalu_status.h"

class HashAndWriteBuffer;

enum EV_ExtractionType : int32_t {
  EXTRACTION_FULL = 1,
  EXTRACTION_SINGLE_FILE = 2,
  EXTRACTION_EXCLUDE_FILE = 3,
};

extern std::string g_certificateFilePath;
extern std::string g_srcFilePath;
extern std::string g_dstDirPath;
extern std::string g_interesetedFileName;
extern int32_t g_eExtractionType;
extern std::atomic<unsigned char> g_bAbortExecution;
extern std::atomic<unsigned char> g_isExtractionCompleted;
extern std::map<std::string, std::string> g_hashResult;
extern std::vector<HashAndWriteBuffer*> g_vectorOfTHashAndWriteBuffer;
extern EV_Version_TPN* g_objKALU_Version_TPN;

void AbortExtraction();
bool CheckParticularFileExtraction();
void ResetGlobalVariables();
double ticksPerSecond();

// Progress of the run in progress (or of the last run): bytes of the package
// read so far and the package's size. False until a run has opened its source
// and learnt its size. Any thread, at any time.
bool GetExtractionProgress(uint64_t* bytesRead, uint64_t* packageSize);

#endif  // EXTRACT_RUN_STATE_H_
