#include "authoring/package/manifest_text.h"

namespace package {

std::string ManifestText(const ManifestHeader& header, const std::vector<ManifestFile>& files) {
  std::string text;
  for (const auto& line : header) text += line.first + "=" + line.second + "\n";
  for (size_t i = 0; i < files.size(); ++i) {
    std::string key = "File" + std::to_string(i + 1);
    text += key + "=" + files[i].name + "\n";
    text += key + " Hash Value=" + files[i].sha256 + "\n";
    text += key + " Size=" + std::to_string(files[i].size) + "\n";
  }
  return text;
}

std::vector<ManifestFile> ManifestFiles(const std::vector<WrittenEntry>& written) {
  std::vector<ManifestFile> files;
  for (const WrittenEntry& entry : written) {
    if (entry.type == FileType::kRegular) files.push_back({entry.name, entry.sha256, entry.size});
  }
  return files;
}

}  // namespace package
