// Whether a file entry may be written, decided before a byte of it is.
//
// Once the run's signed manifest has been verified and parsed, it accounts
// for everything the run may write: an entry that it does not list, or whose
// header declares another size than the manifest's (the first listing of a
// name counts), is refused, and a listed entry may receive at most its signed
// size. An entry whose destination is the run's verified Version.inf is
// refused in any case: the manifest on disk stays the one that was verified.
// Entries met before the manifest cannot be judged this way; they are
// written as they come, noted, and judged by the same rule at the end of the
// run, before the digests are compared.
//
// Extract thread only, but for JudgeUnjudgedEntries, which the caller's
// thread calls once every thread of the run has been joined; reads the
// run's manifest object.
#ifndef EXTRACT_ENTRY_ADMISSION_H_
#define EXTRACT_ENTRY_ADMISSION_H_

#include <cstdint>
#include <string>

#include "extract/entry_rules.h"
#include "extract_verify/manifest.h"

namespace ev {

// `manifest` is null until the run's manifest has been parsed; `manifestPath`
// is empty until a verified Version.inf has been written.
EntryVerdict AdmitEntry(const std::string& name, int64_t declaredSize, const char* filePath,
                        const std::string& manifestPath, const EV_Version_TPN* manifest);

// The reason for refusing an entry that delivers more than `limit` bytes.
std::string OversizeReason(uint64_t limit);

// Entries written before the run's manifest was parsed: forgotten at the
// start of a run, noted as they are written.
void ForgetUnjudgedEntries();
void NoteUnjudgedEntry(const std::string& name, int64_t declaredSize);
// Judges the noted entries, in the order written, by their declared size
// against `manifest` (null or not found: nothing to judge; a name it does
// not list is left to the digests' comparison). SIGN_ERR02 at the first
// that differs, refused with the line the walk prints; else KALU_NO_ERR.
_KALU_Error JudgeUnjudgedEntries(const EV_Version_TPN* manifest);

}  // namespace ev

#endif  // EXTRACT_ENTRY_ADMISSION_H_
