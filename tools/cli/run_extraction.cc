#include "tools/cli/run_extraction.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>

#include "extract_verify/extraction.h"
#include "platform/hxlog/hxlog.h"
#include "tools/cli/progress.h"
#include "tools/cli/stdout_redirect.h"

namespace cli {

namespace {

volatile sig_atomic_t g_interrupted = 0;

// AbortExtraction only stores a byte flag, which is safe in a handler. The
// handler is reset by its first call, so a second Ctrl-C ends the process.
void OnInterrupt(int) {
  g_interrupted = 1;
  AbortExtraction();
}

class InterruptAbortsRun {
 public:
  InterruptAbortsRun() {
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &m_oldInt);
    sigaction(SIGTERM, &action, &m_oldTerm);
  }
  ~InterruptAbortsRun() {
    sigaction(SIGINT, &m_oldInt, nullptr);
    sigaction(SIGTERM, &m_oldTerm, nullptr);
  }
  InterruptAbortsRun(const InterruptAbortsRun&) = delete;
  InterruptAbortsRun& operator=(const InterruptAbortsRun&) = delete;

 private:
  struct sigaction m_oldInt {};
  struct sigaction m_oldTerm {};
};

// A descriptor closed when the holder ends.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : m_fd(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return m_fd; }
  int release() {
    int fd = m_fd;
    m_fd = -1;
    return fd;
  }
  void reset(int fd = -1) {
    if (m_fd >= 0) close(m_fd);
    m_fd = fd;
  }

 private:
  int m_fd;
};

std::runtime_error SystemError(const char* what) {
  return std::runtime_error(std::string(what) + ": " + strerror(errno));
}

// Standard output goes to /dev/null until the redirection ends.
StdoutRedirect SilenceStdout() {
  Descriptor null(open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (null.get() < 0) throw SystemError("cannot open /dev/null");
  return StdoutRedirect(null.get());
}

// The progress line needs standard error to itself: the logger writes its
// lines there too once any level is enabled (HXLOG_MASK).
bool ShowProgress() { return isatty(STDERR_FILENO) == 1 && g_LumLogParams.logMask.load() == 0; }

}  // namespace

_KALU_Error RunExtraction(const ExtractionRequest& request) {
  const bool showProgress = ShowProgress();
  std::optional<StdoutRedirect> redirect;
  std::unique_ptr<ProgressDisplay> display;
  Descriptor forwardTo;  // the real standard output, for the library's lines

  if (request.quiet) {
    redirect.emplace(SilenceStdout());
    if (showProgress) display = std::make_unique<ProgressDisplay>(-1, -1);
  } else if (showProgress) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw SystemError("cannot make a pipe");
    Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    forwardTo.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    if (forwardTo.get() < 0) throw SystemError("cannot duplicate standard output");
    // Standard output is then the pipe's only write end: restoring it ends
    // the pipe, which tells the display that every line has been passed on.
    redirect.emplace(writeEnd.get());
    writeEnd.reset();
    display = std::make_unique<ProgressDisplay>(readEnd.release(), forwardTo.get());
  }

  g_interrupted = 0;
  _KALU_Error status;
  {
    InterruptAbortsRun interrupts;
    const char* fileName = request.selectsFile ? request.fileName.c_str() : nullptr;
    status = ExtractWithHash(request.certificate.c_str(), request.package.c_str(),
                             request.destination.c_str(), fileName, request.exclude);
  }
  if (redirect) redirect->restore();
  if (display) display->finish();
  return status;
}

bool ExtractionWasInterrupted() { return g_interrupted != 0; }

}  // namespace cli
