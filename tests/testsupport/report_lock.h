// Serialises the tests that run extractions across every process on the
// machine. A run writes the one error report file "/tmp/extract_verify_error.txt",
// so two test trees running at once (a sanitizer suite beside the normal one,
// say) would read each other's reports. CTest's resource locks only order the
// tests of one ctest run; this lock (flock on a file beside the report) also
// orders separate runs. Hold one object for the whole test.
#ifndef TESTS_TESTSUPPORT_REPORT_LOCK_H_
#define TESTS_TESTSUPPORT_REPORT_LOCK_H_

namespace testsupport {

class ErrorReportLock {
 public:
  ErrorReportLock();  // blocks until the lock is free
  ~ErrorReportLock();
  ErrorReportLock(const ErrorReportLock&) = delete;
  ErrorReportLock& operator=(const ErrorReportLock&) = delete;

 private:
  int m_fd;
};

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_REPORT_LOCK_H_
