#include "tools/cli/package_check.h"

#include <strings.h>

#include <map>
#include <set>

#include "extract/entry_rules.h"

namespace cli {

namespace {

bool IsSignedManifest(const ScannedEntry& entry) {
  return ev::ClassifyEntry(entry.name, entry.declaredSize) == ev::EntryKind::kSignedManifest;
}

// What the entries before the one being judged leave behind.
struct WalkSoFar {
  std::set<std::string> names;
  uint64_t manifestPieces = 0;  // pieces of signed manifest read
};

// Why the extractor refuses a signed manifest entry: each of its pieces is
// verified in turn, and only the package's first piece may be accepted.
std::string ManifestRefusal(const ScannedEntry& entry, WalkSoFar& walk) {
  const uint64_t before = walk.manifestPieces;
  const uint64_t pieces = ev::ManifestPieceCount(entry.bytes);
  walk.manifestPieces += pieces;
  if (ev::RefusesManifestPiece(before)) return "a second signed manifest (SIGN_ERR01)";
  if (pieces > 1 && ev::RefusesManifestPiece(before + 1)) {
    return std::to_string(entry.bytes) + " bytes; the extractor verifies at most " +
           std::to_string(kMaxSignedManifestBytes) + " as one signed manifest (SIGN_ERR01)";
  }
  return "";
}

// Why the extractor refuses `entry`, given the entries before it. A link
// that holds data is refused as well, although the extractor would write it
// as a plain file: a package that holds one was not meant as it reads.
std::string Refusal(const ScannedEntry& entry, WalkSoFar& walk) {
  std::string why = NameOrSizeRefusal(entry.name, entry.declaredSize);
  if (!why.empty()) return why;
  if (!entry.regular) return "not a regular file (the extractor would write it as one)";
  if (IsSignedManifest(entry)) return ManifestRefusal(entry, walk);
  if (!walk.names.insert(entry.name).second) {
    return "comes twice (PKG_ERR03 unless the data is the same)";
  }
  return "";
}

// `listed` is the manifest's first listing of the entry's name, or null. The
// entry is admitted as the extractor admits it, from its header before a
// byte is written; then its bytes and digest are compared.
void CompareEntry(const ScannedEntry& entry, const _stVersionInfFileInfo* listed,
                  PackageFindings& findings) {
  const ev::EntryVerdict verdict = ev::JudgeAgainstManifest(
      entry.declaredSize, listed != nullptr ? &listed->ullFileSize : nullptr);
  if (verdict.status != KALU_NO_ERR && listed == nullptr) {
    findings.notInManifest.push_back(entry.name);
  } else if (verdict.status != KALU_NO_ERR || entry.bytes != verdict.byteLimit) {
    findings.mismatched.push_back(entry.name + ": " + std::to_string(entry.bytes) +
                                  " bytes in the archive, " + std::to_string(listed->ullFileSize) +
                                  " in the manifest");
  } else if (strcasecmp(listed->strHashValue.c_str(), entry.sha256.c_str()) != 0) {
    findings.mismatched.push_back(entry.name + ": SHA-256 " + entry.sha256 +
                                  " differs from the manifest's " + listed->strHashValue);
  }
}

}  // namespace

std::string NameOrSizeRefusal(const std::string& name, int64_t size) {
  switch (ev::ClassifyEntry(name, size)) {
    case ev::EntryKind::kEmpty:
      return "empty, a directory, a link or a device (the extractor stops here)";
    case ev::EntryKind::kParentReference:
      return "name contains \"..\" (the extractor stops here)";
    case ev::EntryKind::kSignedManifest:
    case ev::EntryKind::kFile:
      break;
  }
  return "";
}

PackageFindings CheckEntries(const ArchiveScan& scan) {
  PackageFindings findings;
  WalkSoFar walk;
  for (const ScannedEntry& entry : scan.entries) {
    std::string why = Refusal(entry, walk);
    if (!why.empty()) findings.refused.push_back(entry.name + ": " + why);
  }
  if (!scan.readError.empty()) findings.refused.push_back("archive damaged: " + scan.readError);
  return findings;
}

PackageFindings CheckAgainstManifest(const ArchiveScan& scan,
                                     const std::vector<_stVersionInfFileInfo>& files) {
  PackageFindings findings = CheckEntries(scan);
  std::map<std::string, const _stVersionInfFileInfo*> listed;
  for (const _stVersionInfFileInfo& file : files) listed.emplace(file.strFileName, &file);
  std::set<std::string> inArchive;
  for (const ScannedEntry& entry : scan.entries) {
    if (!entry.regular ||
        ev::ClassifyEntry(entry.name, entry.declaredSize) != ev::EntryKind::kFile) {
      continue;
    }
    inArchive.insert(entry.name);
    auto found = listed.find(entry.name);
    CompareEntry(entry, found != listed.end() ? found->second : nullptr, findings);
  }
  for (const auto& file : listed) {
    if (inArchive.count(file.first) == 0) findings.missing.push_back(file.first);
  }
  return findings;
}

}  // namespace cli
