#include "tools/cli/package_output.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/cli/options.h"
#include "tools/cli/text_format.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

// The temporary file that a signal removes; written before the handler is
// installed, read by it only.
char g_temporaryToRemove[PATH_MAX];

void RemoveAndExit(int) {
  unlink(g_temporaryToRemove);
  static const char kText[] = "\nextract-verify: interrupted; nothing was written\n";
  ssize_t ignored = write(STDERR_FILENO, kText, sizeof kText - 1);
  (void)ignored;
  _exit(kExitInterrupted);
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

unsigned TerminalWidth() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

}  // namespace

PackageOutput::PackageOutput(const std::string& path, bool overwrite) : m_path(path) {
  if (path == "-") {
    throw InputError(
        "--out - is not supported: a package is written to a file, named with "
        "--out");
  }
  std::error_code error;
  if (fs::is_directory(path, error)) throw InputError("the output " + path + " is a directory");
  if (fs::exists(fs::symlink_status(path, error)) && !overwrite) {
    throw InputError(path + " exists; give --force to replace it");
  }
  fs::path directory = fs::path(path).parent_path();
  std::string pattern = (directory.empty() ? fs::path(".") : directory).string() + "/." +
                        fs::path(path).filename().string() + ".partial-XXXXXX";
  if (pattern.size() >= sizeof g_temporaryToRemove) throw InputError("the output path is too long");
  int fd = mkstemp(pattern.data());
  if (fd < 0) {
    throw InputError("cannot write into the directory of " + path + ": " + strerror(errno));
  }
  close(fd);
  m_temporary = pattern;
  memcpy(g_temporaryToRemove, pattern.c_str(), pattern.size() + 1);
  struct sigaction action {};
  action.sa_handler = RemoveAndExit;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &m_oldInt);
  sigaction(SIGTERM, &action, &m_oldTerm);
}

PackageOutput::~PackageOutput() {
  sigaction(SIGINT, &m_oldInt, nullptr);
  sigaction(SIGTERM, &m_oldTerm, nullptr);
  if (!m_committed) unlink(m_temporary.c_str());
}

void PackageOutput::commit() {
  if (rename(m_temporary.c_str(), m_path.c_str()) != 0) {
    throw InputError("cannot move the package to " + m_path + ": " + strerror(errno));
  }
  m_committed = true;
}

ByteProgress::ByteProgress(uint64_t total, unsigned passes)
    : m_shown(isatty(STDERR_FILENO) == 1), m_total(total), m_passes(passes), m_start(Now()) {}

void ByteProgress::add(uint64_t bytes) {
  m_done += bytes;
  if (m_shown && Now() - m_lastDraw >= 0.2) draw();
}

void ByteProgress::finish() {
  if (!m_shown) return;
  draw();
  fputc('\n', stderr);
  m_shown = false;
}

void ByteProgress::draw() {
  m_lastDraw = Now();
  fprintf(
      stderr, "\r%s",
      ProgressLine(m_done / m_passes, m_total, m_lastDraw - m_start, TerminalWidth() - 1).c_str());
  fflush(stderr);
}

}  // namespace cli
