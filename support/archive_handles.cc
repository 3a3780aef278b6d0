#include <archive.h>

#include <cstdio>

#include "extract_verify/resources.h"
#include "platform/log.h"

ArchiveObject::ArchiveObject(archive* a) : m_archive(a) {
  if (m_archive == nullptr) {
    printf("Failed to create archive object\n");
    EV_LOG_ERROR("Failed to create archive object");
  }
}

ArchiveObject::~ArchiveObject() { archive_read_free(m_archive); }

ArchiveFile::ArchiveFile(archive* a, int openResult) : m_archive(a) {
  if (openResult == 0) return;
  if (m_archive != nullptr) {
    // A failed open need not leave an error text; print what glibc prints
    // for a null string rather than handing null to printf on the target.
    const char* error = archive_error_string(m_archive);
    if (error == nullptr) error = "(null)";
    printf("Failed to create archive file: (%d) (%s)\n", openResult, error);
    EV_LOG_ERROR("Failed to create archive file: (%d) (%s) ", openResult, error);
  } else {
    printf("Failed to create archive file: (%d), a is NULL\n", openResult);
    EV_LOG_ERROR("Failed to create archive file: (%d), a is NULL ", openResult);
  }
}

// libarchive dereferences a null reader here, unlike archive_read_free.
ArchiveFile::~ArchiveFile() {
  if (m_archive != nullptr) archive_read_close(m_archive);
}
