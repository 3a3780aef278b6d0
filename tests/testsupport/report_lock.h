// Serialises the tests that run extractions across every process on the
// machine. A run writes the one error report file "/tmp/extract_verify_error.txt",
// so two test trees running at once (a sanitizer suite beside the normal one,
// say) would read each other's reports. CTest's resource locks only order the
// tests of one ctest run; this lock (flock on a file beside the report) also
// orders separate runs. Hold one object for the whole test.
#ifndef TESTS_TESTSUPPORT_REPORT_LOCK_H_
#define TESTS_TESTSUPPORT_REPORT_LOCK_H_

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace testsupport {

class ErrorReportLock {
 public:
  ErrorReportLock() {  // blocks until the lock is free
    while (flock(m_fd, LOCK_EX) != 0 && errno == EINTR) continue;
  }
  ~ErrorReportLock() { close(m_fd); }
  ErrorReportLock(const ErrorReportLock&) = delete;
  ErrorReportLock& operator=(const ErrorReportLock&) = delete;

 private:
  int m_fd = open("/tmp/extract_verify_error.txt.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
};

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_REPORT_LOCK_H_
