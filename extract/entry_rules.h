// The rules by which the extractor takes or refuses an archive entry,
// judged from facts alone: the entry's name and declared size, how many
// pieces of signed manifest came before it, and the size the run's signed
// manifest lists for it. The extract thread's walk and the tool's checks of
// a package (inspect, pack) both decide by these functions, so that the tool
// cannot call a package good that the extractor refuses.
//
// Pure functions without state; any thread.
#ifndef EXTRACT_ENTRY_RULES_H_
#define EXTRACT_ENTRY_RULES_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "extract_verify/status.h"

namespace ev {

// The signed manifest is read in pieces of at most this many bytes, and each
// piece is verified as one whole signed manifest.
constexpr size_t kManifestReadSize = 4096;
extern const char kSignedManifestName[];  // "Version.der"
extern const char kManifestFileName[];    // "Version.inf", unpacked from it

enum class EntryKind {
  kEmpty,            // size 0 or less (directories, links, devices, empty files):
                     // the walk ends with PKG_ERR03
  kParentReference,  // the name holds ".." anywhere, even inside a component:
                     // the walk ends, the status stays as it is
  kSignedManifest,   // exactly "Version.der": verified, then parsed
  kFile,             // filtered by the run's extraction type, then written
};

// The size is judged before the name: an empty entry named "a..b" is empty.
EntryKind ClassifyEntry(const std::string& name, int64_t declaredSize);

// Only the exact name: "sub/Version.der" is an ordinary file.
bool IsSignedManifestName(const std::string& name);

// A package has one signed manifest. Once a piece has been accepted, every
// further one (the rest of a Version.der longer than one read, or a second
// Version.der) is refused before it is verified: verified, it would replace
// the verified Version.inf; parsed into the same manifest object, another
// package's file list would merge with this one's.
bool RefusesManifestPiece(size_t piecesAcceptedBefore);

// The pieces in which a signed manifest of `bytes` bytes is read.
uint64_t ManifestPieceCount(uint64_t bytes);

struct EntryVerdict {
  _KALU_Error status = KALU_NO_ERR;  // anything else: refused with this status
  std::string reason;                // why it was refused
  uint64_t byteLimit = UINT64_MAX;   // most data bytes the entry may receive
};

// A file entry against the run's parsed manifest: `listedSize` is the size
// of the manifest's first listing of the entry's name, or null when the
// manifest does not list it. Unlisted entries and entries whose header
// declares another size are refused; a listed one may receive at most its
// signed size.
EntryVerdict JudgeAgainstManifest(int64_t declaredSize, const uint64_t* listedSize);

}  // namespace ev

#endif  // EXTRACT_ENTRY_RULES_H_
