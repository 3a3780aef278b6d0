#include "tools/cli/stdout_redirect.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace cli {

namespace {

std::runtime_error SystemError(const std::string& what) {
  return std::runtime_error(what + ": " + strerror(errno));
}

}  // namespace

StdoutRedirect::StdoutRedirect(int fd) {
  fflush(stdout);
  m_saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  if (m_saved < 0) throw SystemError("cannot save standard output");
  if (dup2(fd, STDOUT_FILENO) < 0) {
    close(m_saved);
    m_saved = -1;
    throw SystemError("cannot redirect standard output");
  }
}

StdoutRedirect StdoutRedirect::ToFile(const std::string& path) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) throw SystemError("cannot open " + path);
  try {
    StdoutRedirect redirect(fd);
    close(fd);
    return redirect;
  } catch (...) {
    close(fd);
    throw;
  }
}

StdoutRedirect::StdoutRedirect(StdoutRedirect&& other) noexcept : m_saved(other.m_saved) {
  other.m_saved = -1;
}

StdoutRedirect::~StdoutRedirect() { restore(); }

void StdoutRedirect::restore() {
  if (m_saved < 0) return;
  fflush(stdout);
  dup2(m_saved, STDOUT_FILENO);
  close(m_saved);
  m_saved = -1;
}

}  // namespace cli
