// Scoped owners of the library's resources: a file descriptor (FileHandle),
// a POSIX mutex and condition variable (Mutex, Cond), a libarchive reader and
// its open state (ArchiveObject, ArchiveFile).
//
// FileHandle: the descriptor is opened by the caller and handed over; the
// destructor closes it unconditionally (a negative one included, which only
// fails with EBADF). closeNow() closes early and keeps -1, so that the
// destructor's close cannot hit a descriptor number that another thread of
// the process has opened since. Used by one thread at a time.
//
// Mutex and Cond: the constructors throw std::runtime_error when the object cannot be
// initialised (after printing and logging why); the destructors report a
// failed destroy and never throw. The owner must outlive every thread that
// uses the object. The conversions hand the underlying object to the
// pthread calls (on the target both are the platform's _sync object).
//
// ArchiveObject takes the result of archive_read_new and frees it with
// archive_read_free; ArchiveFile takes the same reader after the caller's
// archive_read_open and closes it with archive_read_close. An ArchiveFile
// must end before its ArchiveObject. Both report a missing reader or a
// failed open by message only; the caller tests the values. One thread.
#ifndef EXTRACT_VERIFY_RESOURCES_H_
#define EXTRACT_VERIFY_RESOURCES_H_

#include <pthread.h>

#include "extract_verify/export.h"
#include "extract_verify/thread_annotations.h"

struct archive;  // libarchive's reader; only pointers to it are passed

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

class EV_EXPORT EV_CAPABILITY("mutex") Mutex {
 public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  operator pthread_mutex_t*() { return &m_mutex; }

  // The analysis cannot see into the pthread calls; these tell it.
  void lock() EV_ACQUIRE() EV_NO_THREAD_SAFETY_ANALYSIS { pthread_mutex_lock(&m_mutex); }
  void unlock() EV_RELEASE() EV_NO_THREAD_SAFETY_ANALYSIS { pthread_mutex_unlock(&m_mutex); }

 private:
  pthread_mutex_t m_mutex;
};

class EV_EXPORT Cond {
 public:
  Cond();
  ~Cond();
  Cond(const Cond&) = delete;
  Cond& operator=(const Cond&) = delete;

  operator pthread_cond_t*() { return &m_cond; }

 private:
  pthread_cond_t m_cond;
};

class EV_EXPORT ArchiveObject {
 public:
  explicit ArchiveObject(archive* a);
  ~ArchiveObject();
  ArchiveObject(const ArchiveObject&) = delete;
  ArchiveObject& operator=(const ArchiveObject&) = delete;

  operator archive*() const { return m_archive; }

 private:
  archive* m_archive;
};

class EV_EXPORT ArchiveFile {
 public:
  ArchiveFile(archive* a, int openResult);
  ~ArchiveFile();
  ArchiveFile(const ArchiveFile&) = delete;
  ArchiveFile& operator=(const ArchiveFile&) = delete;

 private:
  archive* m_archive;
};

#endif  // EXTRACT_VERIFY_RESOURCES_H_
