#include "tools/cli/package_builder.h"

#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "authoring/package/package_writer.h"
#include "extract/entry_rules.h"
#include "tools/cli/archive_scan.h"
#include "tools/cli/options.h"
#include "tools/cli/package_check.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

bool HasLineBreak(const std::string& text) {
  return text.find_first_of("\r\n") != std::string::npos;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool HasControlCharacter(const std::string& text) {
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f) return true;
  }
  return false;
}

void CheckHeaderKey(const std::string& key) {
  static const std::regex kFileKey("File[0-9]+( Hash Value| Size)?");
  if (key.empty()) throw UsageError("--set needs a key before '='");
  if (HasLineBreak(key)) throw UsageError("the key of a --set holds a line break");
  if (IsBlank(key.front()) || IsBlank(key.back())) {
    throw UsageError("the key \"" + key +
                     "\" starts or ends with a blank, which the manifest's "
                     "reader drops");
  }
  if (key[0] == '#' || key[0] == ';' || key[0] == '[') {
    throw UsageError("the key \"" + key + "\" would make a comment or section line");
  }
  if (std::regex_match(key, kFileKey)) {
    throw UsageError("the key \"" + key + "\" belongs to the file list, which pack writes");
  }
}

// The name under which a file is packed, after the checks that keep the
// extractor from stopping at it or writing it wrongly.
std::string PackedName(const std::string& path) {
  std::error_code error;
  fs::file_status status = fs::status(path, error);
  if (error) throw PackRefused("cannot read " + path + ": " + error.message());
  if (fs::is_directory(status)) {
    throw PackRefused(path +
                      " is a directory; a package holds files only (the extractor "
                      "stops at a directory entry)");
  }
  if (!fs::is_regular_file(status)) throw PackRefused(path + " is not a regular file");
  std::string name = fs::path(path).filename().string();
  const std::string refusal = NameOrSizeRefusal(name, static_cast<int64_t>(fs::file_size(path)));
  if (!refusal.empty()) throw PackRefused(path + ": " + refusal);
  if (name == ev::kSignedManifestName || name == ev::kManifestFileName) {
    throw PackRefused("a file named " + name + " cannot be packed: the package's own " +
                      ev::kSignedManifestName + " and the extracted " + ev::kManifestFileName +
                      " have that name");
  }
  if (HasControlCharacter(name) || IsBlank(name.front()) || IsBlank(name.back())) {
    throw PackRefused("the name of " + path +
                      " cannot be written in the manifest as it is "
                      "(control characters, or blanks at either end)");
  }
  return name;
}

std::vector<package::ManifestFile> DescribeFiles(const std::vector<std::string>& files,
                                                 const std::string& output,
                                                 const package::DataObserver& onData) {
  std::map<std::string, std::string> pathOfName;
  for (const std::string& path : files) {
    std::string name = PackedName(path);
    auto earlier = pathOfName.emplace(name, path);
    if (!earlier.second) {
      throw PackRefused(earlier.first->second + " and " + path + " have the same name " + name +
                        "; a package holds each name once");
    }
    std::error_code error;
    if (fs::equivalent(path, output, error)) {
      throw PackRefused(path + " is also the output package");
    }
  }
  std::vector<package::ManifestFile> described;
  for (const std::string& path : files) {
    std::string name = fs::path(path).filename().string();
    described.push_back({name, package::EntrySha256(package::Entry::FromDisk(name, path), onData),
                         static_cast<uint64_t>(fs::file_size(path))});
  }
  return described;
}

// The files were hashed before the package was written; a file that
// changed in between would be packed with a digest that does not match.
void CheckWrittenAsDescribed(const std::vector<package::WrittenEntry>& written,
                             const std::vector<package::ManifestFile>& described,
                             const std::vector<std::string>& paths) {
  for (size_t i = 0; i < described.size(); ++i) {
    const package::WrittenEntry& entry = written.at(i + 1);
    if (entry.sha256 != described[i].sha256 || entry.size != described[i].size) {
      throw std::runtime_error(paths[i] + " changed while it was being packed");
    }
  }
}

}  // namespace

package::ManifestHeader ParseHeaderSettings(const std::vector<std::string>& settings) {
  package::ManifestHeader header;
  std::set<std::string> keys;
  for (const std::string& setting : settings) {
    size_t equals = setting.find('=');
    if (equals == std::string::npos) {
      throw UsageError("--set \"" + setting + "\" lacks '=' (expected Key=Value)");
    }
    std::string key = setting.substr(0, equals);
    std::string value = setting.substr(equals + 1);
    CheckHeaderKey(key);
    if (HasLineBreak(value)) throw UsageError("the value of " + key + " holds a line break");
    if (!keys.insert(key).second) {
      throw UsageError("the key \"" + key + "\" is given twice (the reader keeps the first)");
    }
    header.emplace_back(key, value);
  }
  return header;
}

void CheckSignedManifestSize(size_t bytes) {
  if (bytes > kMaxSignedManifestBytes) {
    throw PackRefused("the signed manifest is " + std::to_string(bytes) +
                      " bytes; the extractor reads at most " +
                      std::to_string(kMaxSignedManifestBytes) +
                      " (pack fewer files, or use shorter names and header values)");
  }
}

std::vector<unsigned char> SignManifest(const std::string& manifestText,
                                        const pki::Identity& signer,
                                        pki::SignedAttributes attributes) {
  std::vector<unsigned char> der =
      pki::SignPkcs7Der(manifestText, signer, {signer.cert.get()}, attributes);
  CheckSignedManifestSize(der.size());
  return der;
}

namespace {

// Version.der over the manifest, or without a signer the manifest itself.
package::Entry FirstEntry(PackResult& result, const pki::Identity* signer, const PackStyle& style) {
  if (signer == nullptr) return package::Entry::File(ev::kManifestFileName, result.manifestText);
  std::vector<unsigned char> der = SignManifest(result.manifestText, *signer, style.attributes);
  result.signedManifestBytes = der.size();
  return package::Entry::File(ev::kSignedManifestName, std::string(der.begin(), der.end()));
}

}  // namespace

PackResult BuildPackage(const package::ManifestHeader& header,
                        const std::vector<std::string>& files, const std::string& output,
                        const pki::Identity* signer, const PackStyle& style,
                        const package::DataObserver& onData) {
  if (files.empty()) throw PackRefused("no files to pack");
  PackResult result;
  result.files = DescribeFiles(files, output, onData);
  result.manifestText = package::ManifestText(header, result.files);
  std::vector<package::Entry> entries = {FirstEntry(result, signer, style)};
  for (size_t i = 0; i < files.size(); ++i) {
    entries.push_back(package::Entry::FromDisk(result.files[i].name, files[i]));
  }
  package::WriteOptions options;
  options.entryTime = style.entryTime;
  try {
    CheckWrittenAsDescribed(package::WritePackage(output, entries, options, onData), result.files,
                            files);
  } catch (...) {
    std::error_code ignored;
    fs::remove(output, ignored);
    throw;
  }
  result.packageBytes = fs::file_size(output);
  return result;
}

}  // namespace cli
