// A fresh directory under $TMPDIR (or /tmp) for one test, removed with all
// its contents when the object ends. Helpers to write and read whole files.
#ifndef TESTS_TESTSUPPORT_TEMP_DIR_H_
#define TESTS_TESTSUPPORT_TEMP_DIR_H_

#include <string>

namespace testsupport {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return m_path; }
  // path() + "/" + name
  std::string file(const std::string& name) const;

 private:
  std::string m_path;
};

void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
void RemoveTree(const std::string& path);

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_TEMP_DIR_H_
