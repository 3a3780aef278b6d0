// Whether the last run wrote every file that its signed manifest lists.
//
// ExtractWithHash checks in one direction only: every file written must be
// listed with its digest, but a listed file that the package lacks (entries
// removed, a package cut short, a walk ended early by a ".." name, a single
// file that is not there) does not make the run fail. A client that needs
// the whole package calls CheckExtractionCompleteness after a run that
// returned KALU_NO_ERR.
//
// Caller's thread, after ExtractWithHash has returned and before the next
// run; reads the run state without locks, like compareHashValues.
#ifndef EXTRACT_COMPLETENESS_H_
#define EXTRACT_COMPLETENESS_H_

#include "extract_verify_export.h"
#include "status/kalu_status.h"

// KALU_NO_ERR when every file that the run's manifest lists, among those
// that the run's extraction type selects, was written in the run with the
// listed digest; for a single-file run the selected file must be listed as
// well. VER_ERR01 when the run loaded no manifest. Otherwise SIGN_ERR02,
// after printing and logging "!!!! File Not Extracted - [File Name] <name>"
// for the first missing file in the manifest's order.
EV_EXPORT _KALU_Error CheckExtractionCompleteness();

#endif  // EXTRACT_COMPLETENESS_H_
