#include "tests/testsupport/temp_dir.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace testsupport {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                        "/ev_test_XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  m_path = buffer.data();
}

TempDir::~TempDir() { RemoveTree(m_path); }

std::string TempDir::file(const std::string& name) const { return m_path + "/" + name; }

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + path);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool FileExists(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

void RemoveTree(const std::string& path) {
  auto removeOne = [](const char* name, const struct stat*, int, struct FTW*) {
    chmod(name, 0700);
    return remove(name);
  };
  nftw(path.c_str(), removeOne, 16, FTW_DEPTH | FTW_PHYS);
}

}  // namespace testsupport
