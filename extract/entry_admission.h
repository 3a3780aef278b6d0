// Whether a file entry may be written, decided before a byte of it is.
//
// Once the run's signed manifest has been verified and parsed, it accounts
// for everything the run may write: an entry that it does not list, or whose
// header declares another size than the manifest's (the first listing of a
// name counts), is refused, and a listed entry may receive at most its signed
// size. An entry whose destination is the run's verified Version.inf is
// refused in any case: the manifest on disk stays the one that was verified.
// Entries met before the manifest cannot be judged this way; they are
// written as they come and checked against the digests at the end.
//
// Extract thread only; reads the run's manifest object.
#ifndef EXTRACT_ENTRY_ADMISSION_H_
#define EXTRACT_ENTRY_ADMISSION_H_

#include <cstdint>
#include <string>

#include "extract/entry_rules.h"
#include "manifest/version_tpn.h"

// `manifest` is null until the run's manifest has been parsed; `manifestPath`
// is empty until a verified Version.inf has been written.
EntryVerdict AdmitEntry(const std::string& name, int64_t declaredSize, const char* filePath,
                        const std::string& manifestPath, const EV_Version_TPN* manifest);

// The reason for refusing an entry that delivers more than `limit` bytes.
std::string OversizeReason(uint64_t limit);

#endif  // EXTRACT_ENTRY_ADMISSION_H_
