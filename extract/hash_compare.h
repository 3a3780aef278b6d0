// The final check of an extraction run: every digest computed while writing
// (g_hashResult) against the manifest's digest for the same name.
//
// Runs on the caller's thread after every thread of the run has been joined;
// reads g_hashResult and g_objKALU_Version_TPN without locks and changes
// neither.
#ifndef EXTRACT_HASH_COMPARE_H_
#define EXTRACT_HASH_COMPARE_H_

#include "extract_verify_export.h"
#include "status/kalu_status.h"

// KALU_NO_ERR when every written file is listed in the manifest with the same
// digest text (also when none was written); VER_ERR01 when no manifest was
// loaded; SIGN_ERR02 at the first file, in name order, that is not listed or
// whose digest differs (byte for byte, no case folding).
EV_EXPORT _KALU_Error compareHashValues();

#endif  // EXTRACT_HASH_COMPARE_H_
