#include "authoring/package/package_writer.h"

#include <archive.h>
#include <archive_entry.h>
#include <openssl/evp.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <utility>

#include "support/hex.h"

namespace package {

namespace {

constexpr size_t kBlockSize = 65536;

class Sha256Stream {
 public:
  Sha256Stream() : m_context(EVP_MD_CTX_new()) {
    if (m_context == nullptr || EVP_DigestInit_ex(m_context, EVP_sha256(), nullptr) != 1) {
      EVP_MD_CTX_free(m_context);
      throw std::runtime_error("SHA-256 is not available");
    }
  }
  ~Sha256Stream() { EVP_MD_CTX_free(m_context); }
  Sha256Stream(const Sha256Stream&) = delete;
  Sha256Stream& operator=(const Sha256Stream&) = delete;

  void update(const void* data, size_t length) { EVP_DigestUpdate(m_context, data, length); }
  std::string hex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(m_context, digest, &length);
    return ev::LowerHex(digest, length);
  }

 private:
  EVP_MD_CTX* m_context;
};

// The data of one regular entry, read piece by piece from its source.
class EntryData {
 public:
  explicit EntryData(const Entry& entry)
      : m_entry(entry), m_generator(entry.generatedSize, entry.seed, entry.mixed) {
    if (entry.source == Entry::Source::kDiskFile) {
      m_file.open(entry.text, std::ios::binary);
      if (!m_file) throw std::runtime_error("cannot read " + entry.text);
    }
  }

  uint64_t size() const {
    switch (m_entry.source) {
      case Entry::Source::kText:
        return m_entry.text.size();
      case Entry::Source::kDiskFile:
        return std::filesystem::file_size(m_entry.text);
      case Entry::Source::kGenerated:
        return m_entry.generatedSize;
    }
    return 0;
  }

  size_t read(unsigned char* out, size_t capacity) {
    switch (m_entry.source) {
      case Entry::Source::kText: {
        size_t n = std::min<size_t>(capacity, m_entry.text.size() - m_offset);
        std::copy_n(m_entry.text.data() + m_offset, n, out);
        m_offset += n;
        return n;
      }
      case Entry::Source::kDiskFile:
        m_file.read(reinterpret_cast<char*>(out), static_cast<std::streamsize>(capacity));
        return static_cast<size_t>(m_file.gcount());
      case Entry::Source::kGenerated:
        return m_generator.read(out, capacity);
    }
    return 0;
  }

 private:
  const Entry& m_entry;
  size_t m_offset = 0;
  std::ifstream m_file;
  ContentGenerator m_generator;
};

la_ssize_t AppendToString(struct archive*, void* client, const void* buffer, size_t length) {
  static_cast<std::string*>(client)->append(static_cast<const char*>(buffer), length);
  return static_cast<la_ssize_t>(length);
}

class ArchiveWriter {
 public:
  explicit ArchiveWriter(const WriteOptions& options, DataObserver onData = DataObserver())
      : m_archive(archive_write_new()),
        m_onData(std::move(onData)),
        m_entryTime(options.entryTime) {
    if (m_archive == nullptr) throw std::runtime_error("archive_write_new failed");
    check(options.format == TarFormat::kUstar ? archive_write_set_format_ustar(m_archive)
                                              : archive_write_set_format_pax_restricted(m_archive));
    if (options.gzip) {
      check(archive_write_add_filter_gzip(m_archive));
      // libarchive writes the clock's time into the gzip header otherwise.
      check(archive_write_set_filter_option(m_archive, "gzip", "timestamp", nullptr));
    }
  }
  ~ArchiveWriter() { archive_write_free(m_archive); }
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  void openFile(const std::string& path) {
    check(archive_write_open_filename(m_archive, path.c_str()));
  }
  void openMemory(std::string* out) {
    check(archive_write_open(m_archive, out, nullptr, AppendToString, nullptr));
  }

  std::vector<WrittenEntry> writeAll(const std::vector<Entry>& entries) {
    std::vector<WrittenEntry> written;
    for (const Entry& entry : entries) written.push_back(write(entry));
    check(archive_write_close(m_archive));
    return written;
  }

  void copyAll(struct archive* reader, const std::string& replaced,
               const std::vector<unsigned char>& signedManifest);

 private:
  void check(int result) {
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
      const char* message = archive_error_string(m_archive);
      throw std::runtime_error(message != nullptr ? message : "libarchive failed");
    }
  }

  WrittenEntry write(const Entry& entry);

  void copyData(struct archive* reader);

  struct archive* m_archive;
  DataObserver m_onData;
  int64_t m_entryTime;
};

// Passes at most `storedSize` bytes of the data to `sink` and returns their
// SHA-256. libarchive pads a shorter entry with zeros, which are hashed too,
// so the digest is that of what a reader gets.
template <typename Sink>
std::string StreamData(EntryData& data, uint64_t storedSize, Sink sink) {
  Sha256Stream sha;
  std::vector<unsigned char> block(kBlockSize);
  uint64_t left = storedSize;
  while (left > 0) {
    size_t n = data.read(block.data(), static_cast<size_t>(std::min<uint64_t>(kBlockSize, left)));
    if (n == 0) break;
    sink(block.data(), n);
    sha.update(block.data(), n);
    left -= n;
  }
  std::fill(block.begin(), block.end(), 0);
  for (; left > 0; left -= std::min<uint64_t>(kBlockSize, left)) {
    sha.update(block.data(), static_cast<size_t>(std::min<uint64_t>(kBlockSize, left)));
  }
  return sha.hex();
}

uint64_t StoredSize(const Entry& entry, const EntryData& data) {
  return entry.declaredSize >= 0 ? static_cast<uint64_t>(entry.declaredSize) : data.size();
}

Entry Special(std::string name, FileType type, std::string target = "") {
  Entry entry;
  entry.name = std::move(name);
  entry.type = type;
  entry.linkTarget = std::move(target);
  return entry;
}

struct EntryFree {
  void operator()(struct archive_entry* entry) const { archive_entry_free(entry); }
};

WrittenEntry ArchiveWriter::write(const Entry& entry) {
  std::unique_ptr<struct archive_entry, EntryFree> header(archive_entry_new());
  struct archive_entry* h = header.get();
  archive_entry_set_pathname(h, entry.name.c_str());
  archive_entry_set_mtime(h, static_cast<time_t>(m_entryTime), 0);
  archive_entry_set_uid(h, 0);
  archive_entry_set_gid(h, 0);
  archive_entry_set_perm(h, 0644);
  archive_entry_set_size(h, 0);
  std::unique_ptr<EntryData> data;
  uint64_t storedSize = 0;
  switch (entry.type) {
    case FileType::kRegular:
      archive_entry_set_filetype(h, AE_IFREG);
      data = std::make_unique<EntryData>(entry);
      storedSize = StoredSize(entry, *data);
      archive_entry_set_size(h, static_cast<la_int64_t>(storedSize));
      break;
    case FileType::kDirectory:
      archive_entry_set_filetype(h, AE_IFDIR);
      archive_entry_set_perm(h, 0755);
      break;
    case FileType::kSymlink:
      archive_entry_set_filetype(h, AE_IFLNK);
      archive_entry_set_perm(h, 0777);
      archive_entry_set_symlink(h, entry.linkTarget.c_str());
      break;
    case FileType::kHardLink:
      archive_entry_set_filetype(h, AE_IFREG);
      archive_entry_set_hardlink(h, entry.linkTarget.c_str());
      break;
    case FileType::kFifo:
      archive_entry_set_filetype(h, AE_IFIFO);
      break;
    case FileType::kCharDevice:
      archive_entry_set_filetype(h, AE_IFCHR);
      archive_entry_set_rdevmajor(h, entry.devMajor);
      archive_entry_set_rdevminor(h, entry.devMinor);
      break;
  }
  check(archive_write_header(m_archive, h));
  WrittenEntry written{entry.name, entry.type, storedSize, ""};
  if (data) {
    written.sha256 = StreamData(*data, storedSize, [this](const unsigned char* block, size_t n) {
      if (archive_write_data(m_archive, block, n) != static_cast<la_ssize_t>(n))
        check(ARCHIVE_FATAL);
      if (m_onData) m_onData(n);
    });
  }
  check(archive_write_finish_entry(m_archive));
  return written;
}

struct ReaderFree {
  void operator()(struct archive* reader) const { archive_read_free(reader); }
};

void CheckRead(struct archive* reader, int result) {
  if (result < ARCHIVE_OK) {
    const char* message = archive_error_string(reader);
    throw std::runtime_error(message != nullptr ? message : "libarchive failed");
  }
}

void ArchiveWriter::copyData(struct archive* reader) {
  std::vector<char> block(kBlockSize);
  for (;;) {
    const la_ssize_t count = archive_read_data(reader, block.data(), block.size());
    CheckRead(reader, static_cast<int>(count < 0 ? count : 0));
    if (count == 0) return;
    if (archive_write_data(m_archive, block.data(), static_cast<size_t>(count)) != count) {
      check(ARCHIVE_FATAL);
    }
    if (m_onData) m_onData(static_cast<size_t>(count));
  }
}

void ArchiveWriter::copyAll(struct archive* reader, const std::string& replaced,
                            const std::vector<unsigned char>& signedManifest) {
  bool done = false;
  struct archive_entry* entry = nullptr;
  int result;
  while ((result = archive_read_next_header(reader, &entry)) == ARCHIVE_OK) {
    const bool replacing = !done && replaced == archive_entry_pathname(entry);
    if (replacing) {
      archive_entry_set_pathname(entry, "Version.der");
      archive_entry_set_size(entry, static_cast<la_int64_t>(signedManifest.size()));
    }
    check(archive_write_header(m_archive, entry));
    if (replacing) {
      if (archive_write_data(m_archive, signedManifest.data(), signedManifest.size()) !=
          static_cast<la_ssize_t>(signedManifest.size())) {
        check(ARCHIVE_FATAL);
      }
      done = true;
    } else {
      copyData(reader);
    }
  }
  CheckRead(reader, result == ARCHIVE_EOF ? ARCHIVE_OK : ARCHIVE_FATAL);
  check(archive_write_close(m_archive));
}

}  // namespace

Entry Entry::File(std::string name, std::string data) {
  Entry entry;
  entry.name = std::move(name);
  entry.text = std::move(data);
  return entry;
}

Entry Entry::FromDisk(std::string name, std::string path) {
  Entry entry = File(std::move(name), std::move(path));
  entry.source = Source::kDiskFile;
  return entry;
}

Entry Entry::Generated(std::string name, uint64_t size, uint64_t seed, bool mixed) {
  Entry entry = File(std::move(name), "");
  entry.source = Source::kGenerated;
  entry.generatedSize = size;
  entry.seed = seed;
  entry.mixed = mixed;
  return entry;
}

Entry Entry::Directory(std::string name) { return Special(std::move(name), FileType::kDirectory); }
Entry Entry::Symlink(std::string name, std::string target) {
  return Special(std::move(name), FileType::kSymlink, std::move(target));
}
Entry Entry::HardLink(std::string name, std::string target) {
  return Special(std::move(name), FileType::kHardLink, std::move(target));
}
Entry Entry::Fifo(std::string name) { return Special(std::move(name), FileType::kFifo); }
Entry Entry::CharDevice(std::string name, unsigned int major, unsigned int minor) {
  Entry entry = Special(std::move(name), FileType::kCharDevice);
  entry.devMajor = major;
  entry.devMinor = minor;
  return entry;
}

std::vector<WrittenEntry> WritePackage(const std::string& path, const std::vector<Entry>& entries,
                                       const WriteOptions& options, const DataObserver& onData) {
  ArchiveWriter writer(options, onData);
  writer.openFile(path);
  return writer.writeAll(entries);
}

std::string WritePackageToMemory(const std::vector<Entry>& entries, const WriteOptions& options,
                                 std::vector<WrittenEntry>* written) {
  std::string out;
  ArchiveWriter writer(options);
  writer.openMemory(&out);
  std::vector<WrittenEntry> stored = writer.writeAll(entries);
  if (written != nullptr) *written = std::move(stored);
  return out;
}

void CopyWithSignedManifest(const std::string& from, const std::string& to,
                            const std::string& replaced,
                            const std::vector<unsigned char>& signedManifest,
                            const DataObserver& onData) {
  std::unique_ptr<struct archive, ReaderFree> reader(archive_read_new());
  if (!reader) throw std::runtime_error("archive_read_new failed");
  archive_read_support_format_tar(reader.get());
  archive_read_support_filter_gzip(reader.get());
  CheckRead(reader.get(), archive_read_open_filename(reader.get(), from.c_str(), kBlockSize));
  ArchiveWriter writer(WriteOptions(), onData);
  writer.openFile(to);
  writer.copyAll(reader.get(), replaced, signedManifest);
}

std::string EntrySha256(const Entry& entry, const DataObserver& onData) {
  EntryData data(entry);
  return StreamData(data, StoredSize(entry, data), [&onData](const unsigned char*, size_t n) {
    if (onData) onData(n);
  });
}

std::string Sha256Hex(const std::string& data) {
  Sha256Stream sha;
  sha.update(data.data(), data.size());
  return sha.hex();
}

}  // namespace package
