// A read-only walk over every entry of a package with libarchive, as the
// extractor sees them (tar format, gzip filter): each entry's header, the
// number of data bytes it holds and their SHA-256, without writing any.
// The signed manifest's data is kept in the pieces the extractor verifies
// one by one: reads of at most 4096 bytes, each in a zeroed buffer of that
// size. Main thread.
#ifndef TOOLS_CLI_ARCHIVE_SCAN_H_
#define TOOLS_CLI_ARCHIVE_SCAN_H_

#include <cstdint>
#include <string>
#include <vector>

#include "extract/entry_rules.h"

namespace cli {

// Largest piece of Version.der that the extractor verifies at once.
constexpr size_t kMaxSignedManifestBytes = ev::kManifestReadSize;

struct ScannedEntry {
  std::string name;
  int64_t declaredSize = 0;  // as the header declares it
  bool regular = false;      // a regular file (not a link, directory, device...)
  uint64_t bytes = 0;        // data bytes read
  std::string sha256;        // lower-case hex of those bytes
  // The rest of the header, to tell two builds of a package apart.
  unsigned mode = 0;  // file type and permission bits, as stat gives them
  int64_t uid = 0, gid = 0;
  std::string uname, gname;
  int64_t mtime = 0;
};

struct ArchiveScan {
  std::vector<ScannedEntry> entries;  // in archive order
  // Every piece of every entry named exactly Version.der, in order.
  std::vector<std::vector<unsigned char>> signedManifestPieces;
  // Set when the walk ended before the end of the archive.
  std::string readError;
};

// Throws InputError when the package cannot be opened as a gzip tar. With
// `untilSignedManifest` the walk ends after the first Version.der.
ArchiveScan ScanArchive(const std::string& path, bool untilSignedManifest = false);

}  // namespace cli

#endif  // TOOLS_CLI_ARCHIVE_SCAN_H_
