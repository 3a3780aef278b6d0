#include "extract/entry_admission.h"

#include <string>
#include <utility>

#include "platform/file_io.h"

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
