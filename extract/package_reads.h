// The package file as a sequence of reads of one chunk (32 KiB).
//
// Whole chunks are read as 64 blocks of 512 bytes while the file's size
// promises them, the tail with plain reads that go on right after the last
// block. Every read is counted in the run's progress, as bytes of the
// package read; a failed read is printed and logged as the reader's. The
// source reader owns the object and the descriptor; its thread only.
#ifndef EXTRACT_PACKAGE_READS_H_
#define EXTRACT_PACKAGE_READS_H_

#include <cstdint>

namespace ev {

class PackageReads {
 public:
  enum : uint32_t { kChunkSize = 32768 };

  PackageReads(int fd, int64_t size) : m_fd(fd), m_size(size) { restart(); }

  // Bytes read into `chunk` (up to kChunkSize): 0 at the end of the file,
  // -1 when the read failed.
  int64_t read(unsigned char* chunk);

  // Reads the package again from its first byte.
  void restart();

 private:
  int64_t readOnce(unsigned char* chunk);

  int m_fd;
  int64_t m_size;
  int64_t m_remaining = 0;
  uint64_t m_blockCounter = 0;
  uint64_t m_bytesRead = 0;
  bool m_bPlainReads = false;
};

}  // namespace ev

#endif  // EXTRACT_PACKAGE_READS_H_
