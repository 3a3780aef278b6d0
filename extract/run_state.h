// The process-wide state of an extraction run: its globals, their reset and
// the run's progress.
//
// Only one run may be in progress in a process: the state below is global and
// belongs to the run in progress (or to the last run, until the next one
// resets it). The entry functions that start a run are in extraction.h. AbortExtraction may be
// called from any other thread during a run. The byte flags read across threads are atomic so that
// the reader, the extract thread and a client see each other's stores without a data race; their
// representation is one byte.
#ifndef EXTRACT_RUN_STATE_H_
#define EXTRACT_RUN_STATE_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "extract_verify_export.h"
#include "manifest/version_tpn.h"
#include "status/kalu_status.h"

class HashAndWriteBuffer;

enum EV_ExtractionType : int32_t {
  EXTRACTION_FULL = 1,
  EXTRACTION_SINGLE_FILE = 2,
  EXTRACTION_EXCLUDE_FILE = 3,
};

extern EV_EXPORT std::string g_certificateFilePath;
extern EV_EXPORT std::string g_srcFilePath;
extern EV_EXPORT std::string g_dstDirPath;
extern EV_EXPORT std::string g_interesetedFileName;
extern EV_EXPORT int32_t g_eExtractionType;
extern EV_EXPORT std::atomic<unsigned char> g_bAbortExecution;
extern EV_EXPORT std::atomic<unsigned char> g_isExtractionCompleted;
extern EV_EXPORT std::map<std::string, std::string> g_hashResult;
extern EV_EXPORT std::vector<HashAndWriteBuffer*> g_vectorOfTHashAndWriteBuffer;
extern EV_EXPORT EV_Version_TPN* g_objKALU_Version_TPN;

EV_EXPORT void AbortExtraction();
EV_EXPORT bool CheckParticularFileExtraction();
EV_EXPORT void ResetGlobalVariables();
EV_EXPORT double ticksPerSecond();

#endif  // EXTRACT_RUN_STATE_H_
