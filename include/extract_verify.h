// extract_verify: unpacks a signed software-update package (a gzip tar whose
// Version.der entry carries the signed manifest Version.inf) into a directory,
// verifying the signature and the SHA-256 of every written file.
//
// This header declares everything the library exports. A client normally needs
// only ExtractWithHash (or StartExtractWithHash), AbortExtraction and the
// status names of CKALUStatus; the rest is exported for clients that inspect a
// run's manifest or drive the stages themselves.
#ifndef EXTRACT_VERIFY_H_
#define EXTRACT_VERIFY_H_

#include "status/kalu_status.h"
#include "support/hash.h"
#include "support/file_handle.h"
#include "support/sync.h"
#include "support/archive_handles.h"
#include "manifest/version_tpn.h"
#include "manifest/system_date.h"
#include "verify/cert_store.h"
#include "verify/verify_by_date.h"
#include "verify/unsign.h"
#include "extract/extraction.h"
#include "extract/run_state.h"
#include "extract/read_buffer.h"
#include "extract/source_reader.h"
#include "extract/extract_thread.h"
#include "extract/hash_write_buffer.h"
#include "extract/hash_compare.h"

#endif  // EXTRACT_VERIFY_H_
