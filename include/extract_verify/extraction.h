// Extraction runs: the entry points, the run's state and its checks.
//
// One call of ExtractWithHash is one run. It blocks the caller, whose thread
// reads the package (copyWithHash) while threads of the run's own unpack,
// hash and write it; every one of them has been joined when the call
// returns. Only one run may be in progress in a process: the globals below
// belong to the run in progress, or to the last run until the next one
// resets them. The byte flags are atomic, one byte wide, so that the run's
// threads and a client see each other's stores.
//
// Which thread may call what:
// - AbortExtraction, GetExtractionProgress and GetExtractionStage: any
//   thread at any time, also during a run; they never block.
// - compareHashValues and CheckExtractionCompleteness: the caller's thread
//   after a run has returned and before the next starts; they read the
//   run's state without locks.
// - the others: the thread that runs (or is about to run) the extraction.
//
// ExtractWithHash checks in one direction only: every file written must be
// listed in the signed manifest with its digest, but a listed file that the
// package lacks does not make the run fail. A client that needs the whole
// package calls CheckExtractionCompleteness after a run that returned
// KALU_NO_ERR.
#ifndef EXTRACT_VERIFY_EXTRACTION_H_
#define EXTRACT_VERIFY_EXTRACTION_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "extract_verify/export.h"
#include "extract_verify/manifest.h"
#include "extract_verify/status.h"

// Runs one extraction: verifies Version.der against `certFilePath`, writes
// Version.inf and every selected entry of `srcFilePath` into `dstDirPath` and
// checks every written file against the manifest. A null `interestedFileName`
// extracts everything; otherwise only that entry (exclude false) or all but
// that entry (exclude true). Returns KALU_NO_ERR (1) on success.
EV_EXPORT _KALU_Error ExtractWithHash(const char* certFilePath, const char* srcFilePath,
                                      const char* dstDirPath, const char* interestedFileName,
                                      bool exclude);
EV_EXPORT _KALU_Error StartExtractWithHash(const char* certFilePath, const char* srcFilePath,
                                           const char* dstDirPath);
EV_EXPORT _KALU_Error StartExtractWithHash(const char* certFilePath, const char* srcFilePath,
                                           const char* dstDirPath, const char* interestedFileName,
                                           bool exclude);

// Kept as entry points for clients; the ring sizes are fixed.
EV_EXPORT void InitExtractWithHash();
EV_EXPORT void SetBufferSize();

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

EV_EXPORT void copyWithHash(_KALU_Error& status);

// KALU_NO_ERR when every written file is listed in the manifest with the same
// digest text (also when none was written); VER_ERR01 when no manifest was
// loaded; SIGN_ERR02 at the first file, in name order, that is not listed or
// whose digest differs (byte for byte, no case folding).
EV_EXPORT _KALU_Error compareHashValues();

// KALU_NO_ERR when every file that the run's manifest lists, among those
// that the run's extraction type selects, was written in the run with the
// listed digest; for a single-file run the selected file must be listed as
// well. VER_ERR01 when the run loaded no manifest. Otherwise SIGN_ERR02,
// after printing and logging "!!!! File Not Extracted - [File Name] <name>"
// for the first missing file in the manifest's order.
EV_EXPORT _KALU_Error CheckExtractionCompleteness();

// Progress of the run in progress, or of the last run, for a client's display.
// Both calls may be made from any thread at any time, also while another
// thread is inside ExtractWithHash; they never block.

// Bytes of the package read so far and the package's size; false until a run
// has opened its package and learnt its size. The bytes reach the size as
// soon as the package has been read, while the last files are still being
// hashed, written and compared: GetExtractionStage tells those stages apart.
EV_EXPORT bool GetExtractionProgress(uint64_t* bytesRead, uint64_t* packageSize);

enum EV_ExtractionStage : int32_t {
  EXTRACTION_STAGE_IDLE = 0,       // no run has started in this process
  EXTRACTION_STAGE_READING = 1,    // the package is being read and unpacked
  EXTRACTION_STAGE_FINISHING = 2,  // read; files are being finished and checked
  EXTRACTION_STAGE_DONE = 3,       // the run is over, until the next one starts
};

// Stage of the run and, when `filesFinished` is not null, the number of
// extracted files that the run has finished: written, hashed and their digest
// recorded. Files are finished once the whole archive has been walked, so the
// count moves during EXTRACTION_STAGE_FINISHING.
EV_EXPORT EV_ExtractionStage GetExtractionStage(uint32_t* filesFinished);

// The library's version, "major.minor.patch".
extern "C" EV_EXPORT const char* extract_verify_version();

#endif  // EXTRACT_VERIFY_EXTRACTION_H_
