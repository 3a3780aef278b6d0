#include "tests/testsupport/report_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <stdexcept>

namespace testsupport {

ErrorReportLock::ErrorReportLock()
    : m_fd(open("/tmp/extract_verify_error.txt.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
  if (m_fd < 0) throw std::runtime_error("cannot open the error report lock");
  while (flock(m_fd, LOCK_EX) != 0) {
    if (errno != EINTR) throw std::runtime_error("cannot take the error report lock");
  }
}

ErrorReportLock::~ErrorReportLock() { close(m_fd); }

}  // namespace testsupport
