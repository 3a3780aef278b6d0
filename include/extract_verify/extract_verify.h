// extract_verify: unpacks a signed software-update package (a gzip tar whose
// Version.der entry carries the signed manifest Version.inf) into a directory,
// verifying the signature and the SHA-256 of every written file.
//
// This header declares everything the library exports. A client normally needs
// only ExtractWithHash (or StartExtractWithHash), AbortExtraction, the
// progress calls at the end of this header and the status names of
// CKALUStatus; the rest is exported for clients that inspect a run's manifest
// or drive the stages themselves.
#ifndef EXTRACT_VERIFY_EXTRACT_VERIFY_H_
#define EXTRACT_VERIFY_EXTRACT_VERIFY_H_

#include "extract_verify/buffers.h"
#include "extract_verify/export.h"
#include "extract_verify/extraction.h"
#include "extract_verify/hash.h"
#include "extract_verify/manifest.h"
#include "extract_verify/resources.h"
#include "extract_verify/status.h"
#include "extract_verify/verify.h"

// Everything the library exports is declared by the headers above.

#endif  // EXTRACT_VERIFY_EXTRACT_VERIFY_H_
