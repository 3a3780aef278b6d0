#include "tools/cli/extract_outcome.h"

#include <strings.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

#include "extract_verify/extraction.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

bool SameStamp(const FileStamp& a, const FileStamp& b) {
  return a.inode == b.inode && a.modified.tv_sec == b.modified.tv_sec &&
         a.modified.tv_nsec == b.modified.tv_nsec;
}

const _stVersionInfFileInfo* Listed(const std::string& name) {
  if (g_objKALU_Version_TPN == nullptr) return nullptr;
  for (const _stVersionInfFileInfo& file : g_objKALU_Version_TPN->m_vecFileInfo) {
    if (file.strFileName == name) return &file;
  }
  return nullptr;
}

}  // namespace

DirectorySnapshot TakeSnapshot(const std::string& directory) {
  DirectorySnapshot snapshot;
  std::error_code error;
  for (fs::recursive_directory_iterator it(directory, error), end; !error && it != end;
       it.increment(error)) {
    struct stat status {};
    if (lstat(it->path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    snapshot[fs::relative(it->path(), directory).string()] = {
        static_cast<unsigned long long>(status.st_ino), status.st_mtim};
  }
  return snapshot;
}

std::vector<std::string> ChangedFiles(const DirectorySnapshot& before,
                                      const std::string& directory) {
  std::vector<std::string> changed;
  for (const auto& file : TakeSnapshot(directory)) {
    auto earlier = before.find(file.first);
    if (earlier == before.end() || !SameStamp(earlier->second, file.second)) {
      changed.push_back(file.first);
    }
  }
  return changed;
}

std::vector<std::string> WrittenFiles() {
  std::vector<std::string> names;
  for (const auto& result : g_hashResult) names.push_back(result.first);
  return names;
}

std::vector<std::string> FilesMissingFromRun(const ExtractionRequest& request) {
  std::vector<std::string> missing;
  if (g_objKALU_Version_TPN == nullptr) return missing;
  for (const _stVersionInfFileInfo& file : g_objKALU_Version_TPN->m_vecFileInfo) {
    const bool named = request.selectsFile && file.strFileName == request.fileName;
    const bool selected = !request.selectsFile || (request.exclude ? !named : named);
    if (selected && g_hashResult.count(file.strFileName) == 0) {
      missing.push_back(file.strFileName);
    }
  }
  return missing;
}

std::string FirstMismatch() {
  for (const auto& result : g_hashResult) {
    const _stVersionInfFileInfo* listed = Listed(result.first);
    if (listed == nullptr) return result.first + ": not listed in the signed manifest";
    if (strcasecmp(listed->strHashValue.c_str(), result.second.c_str()) != 0) {
      return result.first + ": its SHA-256 " + result.second +
             " differs from the signed "
             "manifest's " +
             listed->strHashValue;
    }
  }
  return "";
}

}  // namespace cli
