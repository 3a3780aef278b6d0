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

#include "manifest/version_tpn.h"
#include "status/kalu_status.h"

struct EntryVerdict {
  _KALU_Error status = KALU_NO_ERR;  // anything else: refused with this status
  std::string reason;                // why it was refused
  uint64_t byteLimit = UINT64_MAX;   // most data bytes the entry may receive
};

// `manifest` is null until the run's manifest has been parsed; `manifestPath`
// is empty until a verified Version.inf has been written.
EntryVerdict AdmitEntry(const std::string& name, int64_t declaredSize, const char* filePath,
                        const std::string& manifestPath, const EV_Version_TPN* manifest);

// The reason for refusing an entry that delivers more than `limit` bytes.
std::string OversizeReason(uint64_t limit);

#endif  // EXTRACT_ENTRY_ADMISSION_H_
