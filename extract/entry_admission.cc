#include "extract/entry_admission.h"

#include <string>
#include <utility>
#include <vector>

#include "platform/file_io.h"
#include "platform/log.h"

namespace ev {

namespace {

const _stVersionInfFileInfo* FirstListing(const EV_Version_TPN& manifest, const std::string& name) {
  for (const _stVersionInfFileInfo& file : manifest.m_vecFileInfo) {
    if (file.strFileName == name) return &file;
  }
  return nullptr;
}

EntryVerdict Refused(_KALU_Error status, std::string reason) {
  EntryVerdict verdict;
  verdict.status = status;
  verdict.reason = std::move(reason);
  return verdict;
}

// The same name, or another spelling of it ("./Version.inf", a directory
// link inside the destination) that leads to the same file.
bool IsManifestPath(const char* filePath, const std::string& manifestPath) {
  if (manifestPath.empty()) return false;
  return manifestPath == filePath || platform::SameFile(filePath, manifestPath.c_str());
}

}  // namespace

EntryVerdict AdmitEntry(const std::string& name, int64_t declaredSize, const char* filePath,
                        const std::string& manifestPath, const EV_Version_TPN* manifest) {
  if (IsManifestPath(filePath, manifestPath)) {
    return Refused(PKG_ERR03, "its path is that of the verified manifest");
  }
  if (manifest == nullptr) return EntryVerdict();
  const _stVersionInfFileInfo* listed = FirstListing(*manifest, name);
  return JudgeAgainstManifest(declaredSize, listed != nullptr ? &listed->ullFileSize : nullptr);
}

std::string OversizeReason(uint64_t limit) {
  return "more data than the signed size " + std::to_string(limit);
}

namespace {

// Name and declared size of each entry written before the manifest.
std::vector<std::pair<std::string, int64_t>> g_unjudgedEntries;

}  // namespace

void ForgetUnjudgedEntries() { g_unjudgedEntries.clear(); }

void NoteUnjudgedEntry(const std::string& name, int64_t declaredSize) {
  g_unjudgedEntries.emplace_back(name, declaredSize);
}

_KALU_Error JudgeUnjudgedEntries(const EV_Version_TPN* manifest) {
  if (manifest == nullptr || !manifest->m_bVersionInfFound) return KALU_NO_ERR;
  for (const auto& entry : g_unjudgedEntries) {
    const _stVersionInfFileInfo* listed = FirstListing(*manifest, entry.first);
    if (listed == nullptr) continue;
    const EntryVerdict verdict = JudgeAgainstManifest(entry.second, &listed->ullFileSize);
    if (verdict.status == KALU_NO_ERR) continue;
    EV_SAY_AS("ExtractWithHash", kLogError, "Error: entry %s refused: %s", entry.first.c_str(),
              verdict.reason.c_str());
    return verdict.status;
  }
  return KALU_NO_ERR;
}

}  // namespace ev
