// Points the process's standard output (descriptor 1) somewhere else for a
// while: /dev/null to hide the library's printed lines, a file to keep them,
// or a pipe that the progress display drains.
//
// The library prints from several threads with printf; the redirection must
// therefore be set up before a run starts and undone after it has returned,
// when no library thread is left. Both ends flush stdout first, so that no
// line lands on the wrong side. Main thread only.
#ifndef TOOLS_CLI_STDOUT_REDIRECT_H_
#define TOOLS_CLI_STDOUT_REDIRECT_H_

#include <string>

namespace cli {

class StdoutRedirect {
 public:
  // Sends standard output to `fd` (which the caller keeps) until restore()
  // or the end of the object. Throws std::runtime_error on failure.
  explicit StdoutRedirect(int fd);
  // Sends standard output to the file at `path`, created or truncated.
  static StdoutRedirect ToFile(const std::string& path);
  ~StdoutRedirect();
  StdoutRedirect(StdoutRedirect&& other) noexcept;
  StdoutRedirect(const StdoutRedirect&) = delete;
  StdoutRedirect& operator=(const StdoutRedirect&) = delete;

  // Puts the original standard output back; later calls do nothing.
  void restore();

 private:
  int m_saved = -1;
};

}  // namespace cli

#endif  // TOOLS_CLI_STDOUT_REDIRECT_H_
