// Scoped owners of a libarchive reader and of its open state.
//
// ArchiveObject takes the result of archive_read_new and frees it with
// archive_read_free; ArchiveFile takes the same reader after the caller's
// archive_read_open and closes it with archive_read_close. An ArchiveFile
// must end before its ArchiveObject. Both report a missing reader or a
// failed open by message only; the caller tests the values. One thread.
#ifndef SUPPORT_ARCHIVE_HANDLES_H_
#define SUPPORT_ARCHIVE_HANDLES_H_

#include "extract_verify_export.h"

struct archive;

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

#endif  // SUPPORT_ARCHIVE_HANDLES_H_
