#include "tools/cli/progress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "extract_verify/extract_verify.h"
#include "tools/cli/text_format.h"

namespace cli {

namespace {

const int kRedrawMilliseconds = 200;
const unsigned kDefaultWidth = 80;

void WriteAll(int fd, const char* data, size_t length) {
  while (length > 0) {
    ssize_t done = write(fd, data, length);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return;  // nowhere to show it; the run goes on regardless
    data += done;
    length -= static_cast<size_t>(done);
  }
}

void WriteAll(int fd, const std::string& text) { WriteAll(fd, text.data(), text.size()); }

unsigned TerminalWidth() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return kDefaultWidth;
}

}  // namespace

ProgressDisplay::ProgressDisplay(int pipeIn, int forwardTo)
    : m_pipeIn(pipeIn), m_forwardTo(forwardTo) {
  // Draining must never block: the thread also has to redraw on time.
  if (m_pipeIn >= 0) fcntl(m_pipeIn, F_SETFL, fcntl(m_pipeIn, F_GETFL) | O_NONBLOCK);
  m_thread = std::thread([this] { run(); });
}

ProgressDisplay::~ProgressDisplay() { finish(); }

void ProgressDisplay::finish() {
  if (!m_thread.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = true;
  }
  m_wake.notify_one();
  m_thread.join();
}

void ProgressDisplay::run() {
  for (;;) {
    bool stopping;
    if (m_pipeIn >= 0) {
      // Woken early by the library's lines, and by the end of the pipe.
      pollfd input{m_pipeIn, POLLIN, 0};
      poll(&input, 1, kRedrawMilliseconds);
      std::lock_guard<std::mutex> lock(m_mutex);
      stopping = m_stop;
    } else {
      std::unique_lock<std::mutex> lock(m_mutex);
      m_wake.wait_for(lock, std::chrono::milliseconds(kRedrawMilliseconds),
                      [this] { return m_stop; });
      stopping = m_stop;
    }
    // The write end is closed before the stop is asked for, so everything
    // the library printed is in the pipe by then.
    if (m_pipeIn >= 0 && !forwardAvailable()) {
      close(m_pipeIn);
      m_pipeIn = -1;
    }
    if (stopping) break;
    draw();
  }
  if (m_pipeIn >= 0) close(m_pipeIn);
  m_pipeIn = -1;
  if (!m_partialLine.empty()) forward(m_partialLine);
  draw();
  if (m_drawn) WriteAll(STDERR_FILENO, "\n");
}

bool ProgressDisplay::forwardAvailable() {
  char buffer[4096];
  std::string complete;
  for (;;) {
    ssize_t count = read(m_pipeIn, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) break;  // nothing more for now
    if (count == 0) {
      if (!complete.empty()) forward(complete);
      return false;
    }
    m_partialLine.append(buffer, static_cast<size_t>(count));
    size_t end = m_partialLine.rfind('\n');
    if (end != std::string::npos) {
      complete.append(m_partialLine, 0, end + 1);
      m_partialLine.erase(0, end + 1);
    }
  }
  if (!complete.empty()) forward(complete);
  return true;
}

// The progress line is drawn again by the loop, below the lines passed on.
void ProgressDisplay::forward(const std::string& text) {
  erase();
  WriteAll(m_forwardTo, text);
}

void ProgressDisplay::draw() {
  uint64_t bytesRead = 0;
  uint64_t packageSize = 0;
  if (!GetExtractionProgress(&bytesRead, &packageSize)) return;
  auto now = std::chrono::steady_clock::now();
  if (!m_sizeKnown) {
    m_sizeKnown = true;
    m_sizeKnownAt = now;
  }
  double seconds = std::chrono::duration<double>(now - m_sizeKnownAt).count();
  // The last column stays free: writing it makes some terminals wrap.
  std::string line = ProgressLine(bytesRead, packageSize, seconds, TerminalWidth() - 1);
  WriteAll(STDERR_FILENO, "\r" + line + "\033[K");
  m_drawn = true;
}

void ProgressDisplay::erase() {
  if (!m_drawn) return;
  WriteAll(STDERR_FILENO, "\r\033[K");
  m_drawn = false;
}

}  // namespace cli
