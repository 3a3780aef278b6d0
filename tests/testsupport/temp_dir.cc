#include "tests/testsupport/temp_dir.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testsupport {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "ev_test_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  m_path = pattern;
}

TempDir::~TempDir() { RemoveTree(m_path); }

std::string TempDir::file(const std::string& name) const { return m_path + "/" + name; }

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out.write(contents.data(), static_cast<std::streamsize>(contents.size()))) {
    throw std::runtime_error("cannot write " + path);
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

bool FileExists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

void RemoveTree(const std::string& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

}  // namespace testsupport
