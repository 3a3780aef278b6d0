#include "tools/cli/temp_directory.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace cli {

TempDirectory::TempDirectory(const std::string& prefix) {
  const char* base = getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/" + prefix + ".XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot make a directory " + pattern + ": " + strerror(errno));
  }
  m_path = name.data();
}

TempDirectory::~TempDirectory() {
  if (m_keep) return;
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

}  // namespace cli
