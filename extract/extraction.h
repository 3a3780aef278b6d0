// Entry points of an extraction run.
//
// One call of ExtractWithHash is one run; it blocks the caller, whose thread
// becomes the source reader. Only one run may be in progress in a process
// (see run_state.h for the state it resets and fills). The entry functions
// sit above the source reader: they reset the run state, hand the caller's
// thread to the reader, compare the digests and report the result.
#ifndef EXTRACT_EXTRACTION_H_
#define EXTRACT_EXTRACTION_H_

#include "extract/run_state.h"
#include "extract_verify_export.h"
#include "status/kalu_status.h"

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

#endif  // EXTRACT_EXTRACTION_H_
