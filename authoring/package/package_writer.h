// Builds update packages (gzip tar archives) for tests, tools and benchmarks.
//
// A package is written from an ordered list of entries with libarchive's
// write interface. Regular entries take their data from a string, from a file
// on disk, or from a deterministic generator that produces any size in pieces
// (a 4 GiB entry never sits in memory). The SHA-256 of every regular entry is
// computed while it is written, so that a manifest can be made without
// reading the data again (see manifest_text.h). A package can also be
// copied with its signed manifest replaced, its other entries untouched.
//
// Hostile packages: an entry may declare a size different from its data
// (libarchive then pads with zeros or cuts the data); for a header that lies
// about what follows, write an uncompressed tar to memory, patch the size
// field with PatchTarEntrySize and compress it with GzipCompress.
//
// Failures of libarchive or of the file system throw std::runtime_error.
// Everything here is usable from any thread on distinct objects.
#ifndef AUTHORING_PACKAGE_PACKAGE_WRITER_H_
#define AUTHORING_PACKAGE_PACKAGE_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace package {

// What an entry is, as its tar header says (a hard link is stored as a
// regular entry that names its target). How the extractor treats an entry
// is another matter: see EntryKind in extract/entry_rules.h.
enum class FileType { kRegular, kDirectory, kSymlink, kHardLink, kFifo, kCharDevice };

// `size` bytes that depend only on the seed and on their position, produced
// piece by piece. With `mixed`, runs of kRunLength pseudo-random bytes
// alternate with runs of repeated text, so the data compresses partly.
class ContentGenerator {
 public:
  enum : uint32_t { kRunLength = 16384 };

  ContentGenerator(uint64_t size, uint64_t seed, bool mixed = false);

  // Fills up to `capacity` bytes with the next part of the content; returns
  // how many (0 at the end).
  size_t read(unsigned char* out, size_t capacity);
  uint64_t remaining() const { return m_size - m_position; }

 private:
  void fillRandom(unsigned char* out, uint64_t at, size_t length) const;
  static void fillText(unsigned char* out, uint64_t at, size_t length);

  uint64_t m_size;
  uint64_t m_seed;
  bool m_mixed;
  uint64_t m_position = 0;
};

// The whole content of a small generated entry.
std::string GenerateContent(uint64_t size, uint64_t seed, bool mixed = false);

struct Entry {
  enum class Source { kText, kDiskFile, kGenerated };

  std::string name;
  FileType type = FileType::kRegular;
  std::string linkTarget;                   // symbolic and hard links
  unsigned int devMajor = 0, devMinor = 0;  // character devices

  // Data of a regular entry.
  Source source = Source::kText;
  std::string text;  // kText: the data; kDiskFile: the path of the file
  uint64_t generatedSize = 0;
  uint64_t seed = 0;
  bool mixed = false;
  // The size written into the header when not negative; otherwise the size
  // of the data.
  int64_t declaredSize = -1;

  static Entry File(std::string name, std::string data);
  static Entry FromDisk(std::string name, std::string path);
  static Entry Generated(std::string name, uint64_t size, uint64_t seed, bool mixed = false);
  static Entry Directory(std::string name);  // stored with a trailing '/'
  static Entry Symlink(std::string name, std::string target);
  static Entry HardLink(std::string name, std::string target);
  static Entry Fifo(std::string name);
  static Entry CharDevice(std::string name, unsigned int major, unsigned int minor);
};

// What the archive holds for one entry.
struct WrittenEntry {
  std::string name;
  FileType type;
  uint64_t size;       // data bytes stored (the declared size, when given)
  std::string sha256;  // lower-case hex of the stored data; empty unless regular
};

enum class TarFormat { kPaxRestricted, kUstar };

// Told the size of every block of entry data as it is passed on (progress).
using DataObserver = std::function<void(size_t bytes)>;

// Every entry is written with owner and group 0, no owner names, mode 0644
// (0755 for a directory) and the same modification time, and the gzip
// header carries no file name and no time: the bytes of a package depend on
// its entries alone.
struct WriteOptions {
  TarFormat format = TarFormat::kPaxRestricted;
  bool gzip = true;
  int64_t entryTime = 1700000000;  // seconds since 1970, of every entry
};

// Writes the entries, in order, as a package file at `path`; `onData`, when
// given, is told of every block of entry data written.
std::vector<WrittenEntry> WritePackage(const std::string& path, const std::vector<Entry>& entries,
                                       const WriteOptions& options = WriteOptions(),
                                       const DataObserver& onData = DataObserver());

// The same, into memory; `written` (optional) receives the stored entries.
std::string WritePackageToMemory(const std::vector<Entry>& entries,
                                 const WriteOptions& options = WriteOptions(),
                                 std::vector<WrittenEntry>* written = nullptr);

// Copies the package at `from` to `to`: every entry's header and data
// bytes unchanged and in order, except the first entry named `replaced`,
// which becomes Version.der holding `signedManifest` (its other header
// values kept). `onData` is told of every block of data copied. Throws
// std::runtime_error when a package cannot be read or written.
void CopyWithSignedManifest(const std::string& from, const std::string& to,
                            const std::string& replaced,
                            const std::vector<unsigned char>& signedManifest,
                            const DataObserver& onData = DataObserver());

// Sets the size field of the first header named `name` in the uncompressed
// tar `tar` and repairs its checksum; the data that follows is left alone.
// False when no such header is found or the size does not fit the field.
bool PatchTarEntrySize(std::string* tar, const std::string& name, uint64_t size);

// Turns the first entry named `name` of `tar` into a GNU sparse entry whose
// stored data is its first extent and whose real size is `realSize`: the
// reader delivers zeros up to that size. False when no such header is found
// or its name needs the ustar prefix.
bool MakeTarEntrySparse(std::string* tar, const std::string& name, uint64_t realSize);

// gzip format (zlib deflate with a gzip header and trailer).
std::string GzipCompress(const std::string& data);

// Lower-case hex SHA-256 of the data that a regular entry stores, read from
// its source piece by piece (what WritePackage reports for it), so that a
// manifest can be signed before the package is written.
std::string EntrySha256(const Entry& entry, const DataObserver& onData = DataObserver());

// Lower-case hex SHA-256 of `data`.
std::string Sha256Hex(const std::string& data);

}  // namespace package

#endif  // AUTHORING_PACKAGE_PACKAGE_WRITER_H_
