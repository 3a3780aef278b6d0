#include "tools/cli/archive_scan.h"

#include <archive.h>
#include <archive_entry.h>
#include <openssl/evp.h>

#include <memory>

#include "support/hex.h"
#include "support/openssl_owners.h"
#include "tools/cli/options.h"

namespace cli {

namespace {

struct ReaderFree {
  void operator()(archive* reader) const { archive_read_free(reader); }
};

std::string ErrorText(archive* reader) {
  const char* text = archive_error_string(reader);
  return text != nullptr ? text : "unknown libarchive error";
}

// Reads the current entry's data, hashing it; the signed manifest's pieces
// are kept. False (with the error in `scan`) when the data cannot be read.
bool ReadEntryData(archive* reader, ScannedEntry& entry, ArchiveScan& scan) {
  ev::OpenSslPtr<EVP_MD_CTX, EVP_MD_CTX_free> digest(EVP_MD_CTX_new());
  EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr);
  const bool signedManifest = ev::IsSignedManifestName(entry.name);
  std::vector<unsigned char> piece(signedManifest ? kMaxSignedManifestBytes : 1 << 16);
  for (;;) {
    if (signedManifest) piece.assign(kMaxSignedManifestBytes, 0);
    la_ssize_t count = archive_read_data(reader, piece.data(), piece.size());
    if (count < 0) {
      scan.readError = entry.name + ": " + ErrorText(reader);
      return false;
    }
    if (count == 0) break;
    EVP_DigestUpdate(digest.get(), piece.data(), static_cast<size_t>(count));
    entry.bytes += static_cast<uint64_t>(count);
    if (signedManifest) scan.signedManifestPieces.push_back(piece);
  }
  unsigned char sum[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(digest.get(), sum, &length);
  entry.sha256 = ev::LowerHex(sum, length);
  return true;
}

std::string TextOrEmpty(const char* text) { return text != nullptr ? text : ""; }

void ReadHeaderValues(archive_entry* header, ScannedEntry& entry) {
  entry.mode = archive_entry_mode(header);
  entry.uid = archive_entry_uid(header);
  entry.gid = archive_entry_gid(header);
  entry.uname = TextOrEmpty(archive_entry_uname(header));
  entry.gname = TextOrEmpty(archive_entry_gname(header));
  entry.mtime = archive_entry_mtime(header);
}

}  // namespace

ArchiveScan ScanArchive(const std::string& path, bool untilSignedManifest) {
  std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
  if (!reader) throw std::runtime_error("cannot make an archive reader");
  archive_read_support_format_tar(reader.get());
  archive_read_support_filter_gzip(reader.get());
  if (archive_read_open_filename(reader.get(), path.c_str(), 1 << 16) != ARCHIVE_OK) {
    throw InputError("the package " + path + " is not a gzip tar: " + ErrorText(reader.get()));
  }
  ArchiveScan scan;
  for (;;) {
    archive_entry* header = nullptr;
    int result = archive_read_next_header(reader.get(), &header);
    if (result == ARCHIVE_EOF) break;
    // The extractor stops at warnings as well.
    if (result != ARCHIVE_OK) {
      scan.readError = ErrorText(reader.get());
      break;
    }
    ScannedEntry entry;
    entry.name = TextOrEmpty(archive_entry_pathname(header));
    entry.declaredSize = archive_entry_size(header);
    ReadHeaderValues(header, entry);
    entry.regular =
        archive_entry_filetype(header) == AE_IFREG && archive_entry_hardlink(header) == nullptr;
    const bool read = ReadEntryData(reader.get(), entry, scan);
    scan.entries.push_back(entry);
    if (!read || (untilSignedManifest && !scan.signedManifestPieces.empty())) break;
  }
  return scan;
}

}  // namespace cli
