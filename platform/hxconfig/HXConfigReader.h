// Stand-in for the head unit's configuration reader (libHX_ConfigParser.so).
//
// Reads a key/value text file once, at construction:
//   - one Key=Value pair per line, split at the first '=';
//   - blanks, tabs and carriage returns around key and value are trimmed (so
//     lines may end in LF or CR LF);
//   - empty lines, lines whose first non-blank character is '#' or ';',
//     "[section]" lines and lines without '=' are ignored;
//   - keys are case-sensitive and may contain blanks and hyphens;
//   - when a key occurs twice, its first occurrence wins.
// GetString of an absent key is ""; GetDouble parses the whole trimmed value
// as a decimal number and yields 0 for an absent key or for any other text.
// An unreadable file behaves as an empty one. One object is used by one thread.
#ifndef HXCONFIG_HXCONFIGREADER_H_
#define HXCONFIG_HXCONFIGREADER_H_

#include <map>
#include <string>

class CHXConfigReader {
 public:
  explicit CHXConfigReader(const std::string& path);
  ~CHXConfigReader();

  CHXConfigReader(const CHXConfigReader&) = delete;
  CHXConfigReader& operator=(const CHXConfigReader&) = delete;

  std::string GetString(const std::string& key);
  double GetDouble(const std::string& key);

 private:
  std::map<std::string, std::string> m_values;
};

#endif  // HXCONFIG_HXCONFIGREADER_H_
