#include "tools/cli/package_check.h"

#include <strings.h>

#include <map>
#include <set>

namespace cli {

namespace {

const char kSignedManifestName[] = "Version.der";

bool IsSignedManifest(const ScannedEntry& entry) { return entry.name == kSignedManifestName; }

// Why the extractor refuses `entry`, given the names seen before it.
std::string Refusal(const ScannedEntry& entry, std::set<std::string>& seen) {
  std::string why = NameOrSizeRefusal(entry.name, entry.declaredSize);
  if (!why.empty()) return why;
  if (!entry.regular) return "not a regular file (the extractor stops here)";
  if (!seen.insert(entry.name).second) {
    return IsSignedManifest(entry) ? "a second signed manifest (SIGN_ERR01)"
                                   : "comes twice (PKG_ERR03 unless the data is the same)";
  }
  if (IsSignedManifest(entry) && entry.bytes > kMaxSignedManifestBytes) {
    return std::to_string(entry.bytes) + " bytes; the extractor verifies at most " +
           std::to_string(kMaxSignedManifestBytes) + " as one signed manifest (SIGN_ERR01)";
  }
  return "";
}

void CompareEntry(const ScannedEntry& entry, const _stVersionInfFileInfo& listed,
                  PackageFindings& findings) {
  if (listed.ullFileSize != entry.bytes) {
    findings.mismatched.push_back(entry.name + ": " + std::to_string(entry.bytes) +
                                  " bytes in the archive, " + std::to_string(listed.ullFileSize) +
                                  " in the manifest");
  } else if (strcasecmp(listed.strHashValue.c_str(), entry.sha256.c_str()) != 0) {
    findings.mismatched.push_back(entry.name + ": SHA-256 " + entry.sha256 +
                                  " differs from the manifest's " + listed.strHashValue);
  }
}

}  // namespace

std::string NameOrSizeRefusal(const std::string& name, int64_t size) {
  if (size <= 0) return "empty, a directory, a link or a device (the extractor stops here)";
  if (name.find("..") != std::string::npos) {
    return "name contains \"..\" (the extractor stops here)";
  }
  return "";
}

PackageFindings CheckEntries(const ArchiveScan& scan) {
  PackageFindings findings;
  std::set<std::string> seen;
  for (const ScannedEntry& entry : scan.entries) {
    std::string why = Refusal(entry, seen);
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
    if (IsSignedManifest(entry) || !entry.regular || entry.declaredSize <= 0) continue;
    inArchive.insert(entry.name);
    auto found = listed.find(entry.name);
    if (found == listed.end()) {
      findings.notInManifest.push_back(entry.name);
    } else {
      CompareEntry(entry, *found->second, findings);
    }
  }
  for (const auto& file : listed) {
    if (inArchive.count(file.first) == 0) findings.missing.push_back(file.first);
  }
  return findings;
}

}  // namespace cli
