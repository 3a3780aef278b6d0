// A fresh directory under $TMPDIR (or /tmp) for one command, removed with
// its contents when the object ends unless the command keeps it.
#ifndef TOOLS_CLI_TEMP_DIRECTORY_H_
#define TOOLS_CLI_TEMP_DIRECTORY_H_

#include <string>

namespace cli {

class TempDirectory {
 public:
  // Makes "<tmp>/<prefix>.XXXXXX"; throws std::runtime_error on failure.
  explicit TempDirectory(const std::string& prefix);
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& path() const { return m_path; }
  std::string file(const std::string& name) const { return m_path + "/" + name; }
  // Leaves the directory in place when the object ends.
  void keep() { m_keep = true; }

 private:
  std::string m_path;
  bool m_keep = false;
};

}  // namespace cli

#endif  // TOOLS_CLI_TEMP_DIRECTORY_H_
