// The package file that `pack` and `resign` write. It is written under a
// temporary name in the destination's directory and renamed when complete,
// so that a failed or interrupted command leaves nothing at the output
// path. Ctrl-C (or SIGTERM) while it is open removes the temporary file and
// ends the process with exit status 130. Also the progress line shown while
// such a package is written. Main thread; one PackageOutput at a time.
#ifndef TOOLS_CLI_PACKAGE_OUTPUT_H_
#define TOOLS_CLI_PACKAGE_OUTPUT_H_

#include <signal.h>

#include <cstdint>
#include <string>

namespace cli {

class PackageOutput {
 public:
  // Throws InputError for "-" (standard output is not supported) and for an
  // existing `path` unless `overwrite`.
  PackageOutput(const std::string& path, bool overwrite);
  ~PackageOutput();  // removes the temporary file unless committed
  PackageOutput(const PackageOutput&) = delete;
  PackageOutput& operator=(const PackageOutput&) = delete;

  const std::string& temporaryPath() const { return m_temporary; }
  // Moves the complete package to the output path.
  void commit();

 private:
  std::string m_path;
  std::string m_temporary;
  bool m_committed = false;
  struct sigaction m_oldInt {};
  struct sigaction m_oldTerm {};
};

// A progress line on standard error, drawn only when it is a terminal:
// bytes done of `total`, with the rate and the time left. With `passes` the
// data is read that many times (hashed, then written) and each byte is
// counted once per pass.
class ByteProgress {
 public:
  explicit ByteProgress(uint64_t total, unsigned passes = 1);
  void add(uint64_t bytes);
  void finish();  // ends the line

 private:
  void draw();
  bool m_shown;
  uint64_t m_total;
  unsigned m_passes;
  uint64_t m_done = 0;
  double m_start;
  double m_lastDraw = 0;
};

}  // namespace cli

#endif  // TOOLS_CLI_PACKAGE_OUTPUT_H_
