// Packages and extracted files may pass 2 GiB: on 32-bit Linux (the emulated
// ARM build) that needs the 64-bit file interfaces; the target's 64-bit calls
// are named explicitly below.
#if !defined(__QNXNTO__) && !defined(_FILE_OFFSET_BITS)
#define _FILE_OFFSET_BITS 64
#endif

#include "platform/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace ev::platform {

namespace {

#if defined(EV_TEST_SEAMS)
// Bytes that may still be read before injected failures start; -1 is off.
std::atomic<int64_t> g_readBudget{-1};

// Charges `length` bytes to the injected-fault budget; false when the read
// must fail instead.
bool ChargeRead(size_t length) {
  int64_t budget = g_readBudget.load(std::memory_order_relaxed);
  while (budget >= 0) {
    if (budget == 0) {
      errno = EIO;
      return false;
    }
    int64_t left =
        budget > static_cast<int64_t>(length) ? budget - static_cast<int64_t>(length) : 0;
    if (g_readBudget.compare_exchange_weak(budget, left, std::memory_order_relaxed)) break;
  }
  return true;
}

// The errno every flush fails with; 0 is off.
std::atomic<int> g_flushError{0};

bool FlushFails() {
  const int error = g_flushError.load(std::memory_order_relaxed);
  if (error != 0) errno = error;
  return error != 0;
}
#else
// The library as shipped has no hooks: every read and flush goes ahead, and
// the checks below compile to nothing.
bool ChargeRead(size_t) { return true; }
bool FlushFails() { return false; }
#endif

#if !defined(__QNXNTO__)
// Transfers the whole range unless the file ends or an error occurs first.
template <typename Transfer>
ssize_t TransferAll(Transfer transfer, size_t length, off_t offset) {
  size_t done = 0;
  while (done < length) {
    ssize_t n = transfer(done, length - done, offset + static_cast<off_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return done > 0 ? static_cast<ssize_t>(done) : -1;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}
#endif

}  // namespace

int OpenReadOnly(const char* path) {
#if defined(__QNXNTO__)
  return open64(path, O_RDONLY);
#else
  return open(path, O_RDONLY | O_CLOEXEC);
#endif
}

// Extracted files may pass 2 GiB, which a 32-bit target reaches only
// through the 64-bit calls.
int OpenForWriting(const char* path) {
#if defined(__QNXNTO__)
  return open64(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666);
#else
  return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
#endif
}

// Opened without truncation and without blocking (a FIFO without a reader
// would block the open), checked, and only then emptied.
int OpenReportFile(const char* path) {
  int fd = open(path, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  if (fd < 0) return -1;
  struct stat status {};
  int error = 0;
  if (fstat(fd, &status) != 0) {
    error = errno;
  } else if (!S_ISREG(status.st_mode)) {
    error = EINVAL;
  } else if (status.st_nlink != 1) {
    error = EMLINK;
  } else if (ftruncate(fd, 0) != 0 || fcntl(fd, F_SETFL, 0) != 0) {
    error = errno;
  }
  if (error == 0) return fd;
  close(fd);
  errno = error;
  return -1;
}

int Close(int fd) { return close(fd); }

int FileSize(int fd, int64_t* size) {
#if defined(__QNXNTO__)
  struct stat64 status {};
  if (fstat64(fd, &status) != 0) return -1;
#else
  struct stat status {};
  if (fstat(fd, &status) != 0) return -1;
#endif
  *size = static_cast<int64_t>(status.st_size);
  return 0;
}

int ReadBlocks(int fd, size_t blockSize, uint64_t firstBlock, int blockCount, void* buffer) {
  if (!ChargeRead(blockSize * static_cast<size_t>(blockCount))) return -1;
#if defined(__QNXNTO__)
  return readblock(fd, blockSize, static_cast<unsigned>(firstBlock), blockCount, buffer);
#else
  char* bytes = static_cast<char*>(buffer);
  ssize_t n = TransferAll(
      [&](size_t done, size_t left, off_t at) { return pread(fd, bytes + done, left, at); },
      blockSize * static_cast<size_t>(blockCount), static_cast<off_t>(firstBlock * blockSize));
  return n < 0 ? -1 : static_cast<int>(static_cast<size_t>(n) / blockSize);
#endif
}

int WriteBlocks(int fd, size_t blockSize, uint64_t firstBlock, int blockCount, const void* buffer) {
#if defined(__QNXNTO__)
  return writeblock(fd, blockSize, static_cast<unsigned>(firstBlock), blockCount, buffer);
#else
  const char* bytes = static_cast<const char*>(buffer);
  ssize_t n = TransferAll(
      [&](size_t done, size_t left, off_t at) { return pwrite(fd, bytes + done, left, at); },
      blockSize * static_cast<size_t>(blockCount), static_cast<off_t>(firstBlock * blockSize));
  return n < 0 ? -1 : static_cast<int>(static_cast<size_t>(n) / blockSize);
#endif
}

// A signal arriving during the call is not a failure of the file: retry.
ssize_t Read(int fd, void* buffer, size_t length) {
  if (!ChargeRead(length)) return -1;
  ssize_t n;
  do {
    n = read(fd, buffer, length);
  } while (n < 0 && errno == EINTR);
  return n;
}

ssize_t Write(int fd, const void* buffer, size_t length) {
  ssize_t n;
  do {
    n = write(fd, buffer, length);
  } while (n < 0 && errno == EINTR);
  return n;
}

int SetPosition(int fd, uint64_t offset) {
#if defined(__QNXNTO__)
  return lseek64(fd, static_cast<off64_t>(offset), SEEK_SET) == static_cast<off64_t>(-1) ? -1 : 0;
#else
  return lseek(fd, static_cast<off_t>(offset), SEEK_SET) == static_cast<off_t>(-1) ? -1 : 0;
#endif
}

void SyncAll() { sync(); }

void StartWriteback(int fd, uint64_t offset, uint64_t length) {
#if defined(__linux__)
  sync_file_range(fd, static_cast<off_t>(offset), static_cast<off_t>(length),
                  SYNC_FILE_RANGE_WRITE);
#else
  (void)fd;
  (void)offset;
  (void)length;
#endif
}

int FlushFileData(int fd) {
  if (FlushFails()) return -1;
  int result;
  do {
    result = fdatasync(fd);
  } while (result != 0 && errno == EINTR);
  return result;
}

bool IsReadable(const char* path) { return access(path, R_OK) == 0; }

bool IsSymbolicLink(const char* path) {
  struct stat status {};
  return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

bool SameFile(const char* first, const char* second) {
  struct stat a {};
  struct stat b {};
  if (stat(first, &a) != 0 || stat(second, &b) != 0) return false;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int RemoveFile(const char* path) { return remove(path); }

#if defined(EV_TEST_SEAMS)
void InjectReadFailureAfter(int64_t bytes) {
  g_readBudget.store(bytes < 0 ? -1 : bytes, std::memory_order_relaxed);
}

void InjectFlushFailure(int error) { g_flushError.store(error, std::memory_order_relaxed); }
#endif

}  // namespace ev::platform
