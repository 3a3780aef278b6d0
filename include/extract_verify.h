// extract_verify: unpacks a signed software-update package (a gzip tar whose
// Version.der entry carries the signed manifest Version.inf) into a directory,
// verifying the signature and the SHA-256 of every written file.
//
// This header declares everything the library exports. A client normally needs
// only ExtractWithHash (or StartExtractWithHash), AbortExtraction, the
// progress calls at the end of this header and the status names of
// CKALUStatus; the rest is exported for clients that inspect a run's manifest
// or drive the stages themselves.
#ifndef EXTRACT_VERIFY_H_
#define EXTRACT_VERIFY_H_

#include <cstdint>

#include "extract/completeness.h"
#include "extract/extraction.h"
#include "extract/hash_compare.h"
#include "extract/hash_write_buffer.h"
#include "extract/read_buffer.h"
#include "extract/run_state.h"
#include "extract/source_reader.h"
#include "extract_verify_export.h"
#include "manifest/system_date.h"
#include "manifest/version_tpn.h"
#include "status/kalu_status.h"
#include "support/archive_handles.h"
#include "support/file_handle.h"
#include "support/hash.h"
#include "support/sync.h"
#include "verify/cert_store.h"
#include "verify/unsign.h"
#include "verify/verify_by_date.h"

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

#endif  // EXTRACT_VERIFY_H_
