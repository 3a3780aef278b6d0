// The text of a Version.inf manifest for a package being built.
//
// Header values come first as "Key=Value" lines in the order given, then the
// files, numbered from 1: "File<n>=<name>", "File<n> Hash Value=<hex>" and
// "File<n> Size=<bytes>". Lines end in "\n". The text is what the platform
// configuration reader accepts (platform/hxconfig/HXConfigReader.h); it is
// not signed here.
#ifndef AUTHORING_PACKAGE_MANIFEST_TEXT_H_
#define AUTHORING_PACKAGE_MANIFEST_TEXT_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "authoring/package/package_writer.h"

namespace package {

struct ManifestFile {
  std::string name;
  std::string sha256;  // the hash value text, written as given
  uint64_t size;
};

using ManifestHeader = std::vector<std::pair<std::string, std::string>>;

std::string ManifestText(const ManifestHeader& header, const std::vector<ManifestFile>& files);

// The regular entries of a written package, in archive order (links,
// directories and other special entries are left out).
std::vector<ManifestFile> ManifestFiles(const std::vector<WrittenEntry>& written);

}  // namespace package

#endif  // AUTHORING_PACKAGE_MANIFEST_TEXT_H_
