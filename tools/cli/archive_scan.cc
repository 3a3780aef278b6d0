#include "tools/cli/archive_scan.h"

#include <archive.h>
#include <archive_entry.h>

#include <memory>
#include <stdexcept>

#include "tools/cli/package_builder.h"

namespace cli {

namespace {

struct ReaderFree {
  void operator()(archive* reader) const { archive_read_free(reader); }
};

std::string ErrorText(archive* reader) {
  const char* text = archive_error_string(reader);
  return text != nullptr ? text : "unknown libarchive error";
}

// Fills what one read of the extractor would: as much of the entry's data
// as the first archive_read_data call gives, at most the buffer's size.
bool ReadSignedManifest(archive* reader, std::vector<unsigned char>& buffer) {
  buffer.assign(kMaxSignedManifestBytes, 0);
  return archive_read_data(reader, buffer.data(), buffer.size()) >= 0;
}

}  // namespace

ArchiveScan ScanArchive(const std::string& path) {
  std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
  if (!reader) throw std::runtime_error("cannot make an archive reader");
  archive_read_support_format_tar(reader.get());
  archive_read_support_filter_gzip(reader.get());
  if (archive_read_open_filename(reader.get(), path.c_str(), 1 << 16) != ARCHIVE_OK) {
    throw std::runtime_error("cannot open " + path + ": " + ErrorText(reader.get()));
  }

  ArchiveScan scan;
  for (;;) {
    archive_entry* entry = nullptr;
    int result = archive_read_next_header(reader.get(), &entry);
    if (result == ARCHIVE_EOF) break;
    // The extractor stops at warnings as well.
    if (result != ARCHIVE_OK) {
      scan.readError = ErrorText(reader.get());
      break;
    }
    const char* name = archive_entry_pathname(entry);
    scan.entries.push_back({name != nullptr ? name : "", archive_entry_size(entry)});
    if (!scan.hasSignedManifest && scan.entries.back().name == "Version.der") {
      scan.hasSignedManifest = true;
      scan.signedManifestIndex = scan.entries.size() - 1;
      if (!ReadSignedManifest(reader.get(), scan.signedManifest)) {
        scan.readError = ErrorText(reader.get());
        break;
      }
    }
  }
  return scan;
}

}  // namespace cli
