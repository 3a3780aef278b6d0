#include <cerrno>
#include <cstdio>

#include "extract_verify/resources.h"
#include "platform/file_io.h"
#include "platform/log.h"

namespace platform = ev::platform;

FileHandle::FileHandle(int fd) : m_fd(fd) {
  if (m_fd < 0) {
    int error = errno;
    printf("Error opening file. FD: %d / Error no: %d \n", m_fd, error);
    EV_LOG_ERROR("Error opening file. FD: %d / Error no: %d ", m_fd, error);
  }
}

FileHandle::~FileHandle() { platform::Close(m_fd); }

int FileHandle::closeNow() {
  int result = platform::Close(m_fd);
  m_fd = -1;
  return result;
}
