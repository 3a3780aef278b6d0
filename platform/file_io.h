// File and block I/O of the library, the only place that touches descriptors
// at the system level.
//
// Block calls move 512-byte blocks at an explicit block number (readblock and
// writeblock on the target; positioned reads and writes at block x 512 on
// Linux). They do not promise where the descriptor's position is left:
// callers that switch from block calls to plain reads or writes position the
// descriptor with SetPosition first.
//
// All calls are thread-safe as the underlying system calls are. Errors are
// reported as -1 with errno set, like the system calls they wrap.
#ifndef PLATFORM_FILE_IO_H_
#define PLATFORM_FILE_IO_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace ev::platform {

int OpenReadOnly(const char* path);
// Write only, created and truncated, permission bits 0666 less the umask.
// A symbolic link at `path` is not followed: the open fails (ELOOP).
int OpenForWriting(const char* path);
// A report file at a fixed, shared path: write only, created, truncated,
// 0666 less the umask. Fails without touching anything when `path` is a
// symbolic link (ELOOP), a FIFO, a device or anything else but a regular
// file (EINVAL), or a regular file with more than one name (EMLINK): none of
// them may be emptied and written over on another user's behalf.
int OpenReportFile(const char* path);
int Close(int fd);

// Size of the open file in bytes; 0 or -1.
int FileSize(int fd, int64_t* size);

// Number of whole blocks read or written, or -1.
int ReadBlocks(int fd, size_t blockSize, uint64_t firstBlock, int blockCount, void* buffer);
int WriteBlocks(int fd, size_t blockSize, uint64_t firstBlock, int blockCount, const void* buffer);

ssize_t Read(int fd, void* buffer, size_t length);
ssize_t Write(int fd, const void* buffer, size_t length);
int SetPosition(int fd, uint64_t offset);

void SyncAll();
// Asks the system to start writing a range of an open file to its device
// without waiting for it, so that a later sync finds less to do. Where the
// system has no such request, it does nothing.
void StartWriteback(int fd, uint64_t offset, uint64_t length);
// Waits until the data written to the open file so far is on its device,
// with what is needed to read it back (fdatasync).
int FlushFileData(int fd);
bool IsReadable(const char* path);
// Whether `path` itself (not what it leads to) is a symbolic link.
bool IsSymbolicLink(const char* path);
// Whether both paths exist and lead to one file.
bool SameFile(const char* first, const char* second);
int RemoveFile(const char* path);

// Test hook, in the test build only: once `bytes` more bytes have been read
// through ReadBlocks and Read, every further read fails with EIO. A negative
// value turns the fault off. Any thread.
void InjectReadFailureAfter(int64_t bytes);
// Test hook, in the test build only: every FlushFileData fails with `error`
// until it is called with 0. Any thread.
void InjectFlushFailure(int error);

}  // namespace ev::platform

#endif  // PLATFORM_FILE_IO_H_
