// Scoped owner of a file descriptor.
//
// The descriptor is opened by the caller and handed over; the destructor
// closes it unconditionally (a negative one included, which only fails with
// EBADF). Used by one thread at a time.
//
// closeNow() closes early and keeps -1, so the destructor's close cannot hit
// a descriptor number that another thread of the process has opened since.
#ifndef SUPPORT_FILE_HANDLE_H_
#define SUPPORT_FILE_HANDLE_H_

#include "extract_verify_export.h"

class EV_EXPORT FileHandle {
 public:
  // A negative descriptor is reported ("Error opening file. ...") but kept.
  explicit FileHandle(int fd);
  ~FileHandle();

  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;

  operator int() const { return m_fd; }

  // Closes the descriptor now; returns close's result.
  int closeNow();

 private:
  int m_fd;
};

#endif  // SUPPORT_FILE_HANDLE_H_
