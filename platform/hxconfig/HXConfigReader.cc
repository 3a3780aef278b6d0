#include "platform/hxconfig/HXConfigReader.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>

namespace {

// Carriage returns count as blanks at either end, so that a value never keeps
// one, whatever mix of line ends the file was written with.
std::string Trim(const std::string& text) {
  const char* blanks = " \t\r";
  size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return std::string();
  size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

bool IsIgnoredLine(const std::string& trimmed) {
  if (trimmed.empty()) return true;
  char first = trimmed[0];
  if (first == '#' || first == ';') return true;
  return first == '[' && trimmed.back() == ']';
}

}  // namespace

CHXConfigReader::CHXConfigReader(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    std::string trimmed = Trim(line);
    if (IsIgnoredLine(trimmed)) continue;
    size_t equals = trimmed.find('=');
    if (equals == std::string::npos) continue;
    std::string key = Trim(trimmed.substr(0, equals));
    m_values.emplace(key, Trim(trimmed.substr(equals + 1)));  // first occurrence wins
  }
}

CHXConfigReader::~CHXConfigReader() = default;

std::string CHXConfigReader::GetString(const std::string& key) {
  auto it = m_values.find(key);
  return it == m_values.end() ? std::string() : it->second;
}

double CHXConfigReader::GetDouble(const std::string& key) {
  std::string text = GetString(key);
  if (text.empty()) return 0.0;
  // Only plain decimal numbers: no hexadecimal, infinity or NaN spellings.
  if (text.find_first_not_of("0123456789+-.eE") != std::string::npos) return 0.0;
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  double value = std::strtod(begin, &end);
  if (end == begin || *end != '\0' || !std::isfinite(value)) return 0.0;
  return value;
}
