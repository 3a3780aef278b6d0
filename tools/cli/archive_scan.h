// A read-only walk over a package's entries with libarchive, as the
// extractor sees them (tar format, gzip filter), without extracting any.
// The signed manifest's data is read the way the extractor reads it: one
// read of at most 4096 bytes into a zeroed buffer of that size. Main thread.
#ifndef TOOLS_CLI_ARCHIVE_SCAN_H_
#define TOOLS_CLI_ARCHIVE_SCAN_H_

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct ScannedEntry {
  std::string name;
  int64_t size;  // as the header declares it
};

struct ArchiveScan {
  std::vector<ScannedEntry> entries;  // in archive order
  // The first entry named exactly Version.der, if any.
  bool hasSignedManifest = false;
  size_t signedManifestIndex = 0;
  std::vector<unsigned char> signedManifest;  // always 4096 bytes
  // Set when the walk ended before the end of the archive.
  std::string readError;
};

// Throws std::runtime_error when the package cannot be opened as a gzip tar.
ArchiveScan ScanArchive(const std::string& path);

}  // namespace cli

#endif  // TOOLS_CLI_ARCHIVE_SCAN_H_
