#include "extract/entry_rules.h"

#include <cstring>

namespace ev {

const char kSignedManifestName[] = "Version.der";
const char kManifestFileName[] = "Version.inf";

bool IsSignedManifestName(const std::string& name) {
  // Compared with its terminator, so a longer name never matches.
  return strncmp(name.c_str(), kSignedManifestName, sizeof kSignedManifestName) == 0;
}

EntryKind ClassifyEntry(const std::string& name, int64_t declaredSize) {
  if (declaredSize <= 0) return EntryKind::kEmpty;
  if (name.find("..") != std::string::npos) return EntryKind::kParentReference;
  if (IsSignedManifestName(name)) return EntryKind::kSignedManifest;
  return EntryKind::kFile;
}

bool RefusesManifestPiece(size_t piecesAcceptedBefore) { return piecesAcceptedBefore > 0; }

uint64_t ManifestPieceCount(uint64_t bytes) {
  return (bytes + kManifestReadSize - 1) / kManifestReadSize;
}

EntryVerdict JudgeAgainstManifest(int64_t declaredSize, const uint64_t* listedSize) {
  EntryVerdict verdict;
  if (listedSize == nullptr) {
    verdict.status = SIGN_ERR02;
    verdict.reason = "not listed in the signed manifest";
  } else if (static_cast<uint64_t>(declaredSize) != *listedSize) {
    verdict.status = SIGN_ERR02;
    verdict.reason = "declared size " + std::to_string(declaredSize) +
                     " differs from the signed size " + std::to_string(*listedSize);
  } else {
    verdict.byteLimit = *listedSize;
  }
  return verdict;
}

}  // namespace ev
