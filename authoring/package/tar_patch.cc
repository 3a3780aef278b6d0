// Tools for hostile packages: edit a header of an uncompressed tar, then
// compress the result.
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "authoring/package/package_writer.h"

namespace package {

namespace {

constexpr size_t kRecord = 512;
constexpr size_t kSizeOffset = 124, kSizeLength = 12;
constexpr size_t kChecksumOffset = 148, kChecksumLength = 8;
constexpr size_t kTypeOffset = 156;
constexpr size_t kMagicOffset = 257, kPrefixOffset = 345, kPrefixLength = 155;

std::string Field(const char* header, size_t offset, size_t length) {
  return std::string(header + offset, strnlen(header + offset, length));
}

// Octal, or base 256 when the field's top bit is set (GNU and pax writers
// use it for values that do not fit).
uint64_t Number(const char* header, size_t offset, size_t length) {
  const unsigned char* field = reinterpret_cast<const unsigned char*>(header + offset);
  uint64_t value = 0;
  if (field[0] & 0x80) {
    for (size_t i = 1; i < length; ++i) value = (value << 8) | field[i];
    return value;
  }
  for (size_t i = 0; i < length && field[i] >= '0' && field[i] <= '7'; ++i) {
    value = value * 8 + (field[i] - '0');
  }
  return value;
}

std::string HeaderName(const char* header) {
  std::string name = Field(header, 0, 100);
  if (std::memcmp(header + kMagicOffset, "ustar", 5) != 0) return name;
  std::string prefix = Field(header, kPrefixOffset, kPrefixLength);
  return prefix.empty() ? name : prefix + "/" + name;
}

// The "path" record of a pax extended header, if it has one.
std::string PaxPath(const std::string& records) {
  size_t at = 0;
  while (at < records.size()) {
    size_t blank = records.find(' ', at);
    if (blank == std::string::npos) break;
    size_t length = std::strtoul(records.c_str() + at, nullptr, 10);
    if (length == 0 || at + length > records.size()) break;
    std::string record = records.substr(blank + 1, at + length - blank - 2);
    if (record.compare(0, 5, "path=") == 0) return record.substr(5);
    at += length;
  }
  return "";
}

void RepairChecksum(char* header) {
  std::memset(header + kChecksumOffset, ' ', kChecksumLength);
  unsigned int sum = 0;
  for (size_t i = 0; i < kRecord; ++i) sum += static_cast<unsigned char>(header[i]);
  std::snprintf(header + kChecksumOffset, kChecksumLength, "%06o", sum);
  header[kChecksumOffset + 7] = ' ';
}

// The header of the first entry named `name`, or null.
char* FindHeader(std::string* tar, const std::string& name) {
  std::string paxPath;
  for (size_t at = 0; at + kRecord <= tar->size();) {
    char* header = &(*tar)[at];
    if (header[0] == '\0') return nullptr;  // end of archive
    uint64_t dataSize = Number(header, kSizeOffset, kSizeLength);
    size_t dataStart = at + kRecord;
    char type = header[kTypeOffset];
    if (type == 'x') {
      paxPath = PaxPath(tar->substr(dataStart, static_cast<size_t>(dataSize)));
    } else if (type != 'g') {
      std::string entryName = paxPath.empty() ? HeaderName(header) : paxPath;
      paxPath.clear();
      if (entryName == name) return header;
    }
    at = dataStart + static_cast<size_t>((dataSize + kRecord - 1) / kRecord * kRecord);
  }
  return nullptr;
}

}  // namespace

bool PatchTarEntrySize(std::string* tar, const std::string& name, uint64_t size) {
  if (size >= (1ull << 33)) return false;  // 11 octal digits
  char* header = FindHeader(tar, name);
  if (header == nullptr) return false;
  std::snprintf(header + kSizeOffset, kSizeLength, "%011llo",
                static_cast<unsigned long long>(size));
  RepairChecksum(header);
  return true;
}

// An old-style GNU sparse header: type 'S', GNU magic, one data extent at
// offset 0 holding the stored data, and the real size in base 256 (the
// reader makes zeros of the rest). The fields overlay the ustar prefix.
bool MakeTarEntrySparse(std::string* tar, const std::string& name, uint64_t realSize) {
  char* header = FindHeader(tar, name);
  if (header == nullptr || header[kPrefixOffset] != '\0') return false;
  constexpr size_t kSparseOffset = 386, kExtendedOffset = 482, kRealSizeOffset = 483;
  header[kTypeOffset] = 'S';
  std::memcpy(header + kMagicOffset, "ustar  ", 8);
  std::memset(header + kPrefixOffset, 0, kRealSizeOffset + kSizeLength - kPrefixOffset);
  std::snprintf(header + kSparseOffset, 12, "%011o", 0u);
  std::memcpy(header + kSparseOffset + 12, header + kSizeOffset, kSizeLength);
  header[kExtendedOffset] = '\0';
  header[kRealSizeOffset] = static_cast<char>(0x80);
  for (size_t i = 0; i < 8; ++i) {
    header[kRealSizeOffset + kSizeLength - 1 - i] = static_cast<char>(realSize >> (8 * i));
  }
  RepairChecksum(header);
  return true;
}

std::string GzipCompress(const std::string& data) {
  z_stream stream{};
  // 15 window bits, plus 16 for the gzip wrapper.
  if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  std::string out(deflateBound(&stream, static_cast<uLong>(data.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef*>(&out[0]);
  stream.avail_out = static_cast<uInt>(out.size());
  int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate failed");
  return out;
}

}  // namespace package
