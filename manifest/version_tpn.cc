#include <stdio.h>

#include <memory>

#include "extract_verify/manifest.h"
#include "platform/file_io.h"
#include "platform/hxconfig/HXConfigReader.h"
#include "platform/log.h"

namespace platform = ev::platform;

namespace {

// The three keys of the n-th file: "File<n>", "File<n> Hash Value" and
// "File<n> Size".
struct FileKeys {
  std::string name;
  std::string hash;
  std::string size;
};

FileKeys KeysOfFile(int n) {
  char number[33];
  snprintf(number, sizeof(number), "%d", n);
  FileKeys keys;
  keys.name = std::string("File") + number;
  keys.hash = keys.name + " Hash Value";
  keys.size = keys.name + " Size";
  return keys;
}

// The reader hands sizes over as floating-point numbers. Truncates toward
// zero; negative numbers (and anything that is not a number) give 0, and a
// value beyond the 64-bit range saturates instead of overflowing.
uint64_t SizeFromReader(double value) {
  if (!(value > 0.0)) return 0;
  if (value >= 18446744073709551616.0) return UINT64_MAX;  // 2^64
  return static_cast<uint64_t>(value);
}

}  // namespace

EV_Version_TPN::EV_Version_TPN() = default;

EV_Version_TPN::~EV_Version_TPN() = default;

_KALU_Error EV_Version_TPN::KALU_Parse_INF(const char* infPath) {
  EV_LOG_ENTER();
  printf("Version_Parse_INF File Location : %s\n", infPath);
  EV_LOG_INFO("Version_Parse_INF File Location : %s", infPath);

  m_bHasPreScript = false;
  m_bHasPostScript = false;
  if (!platform::IsReadable(infPath)) {
    EV_LOG_LEAVE();
    return VER_ERR01;
  }

  m_bVersionInfFound = true;
  auto reader = std::make_unique<CHXConfigReader>(infPath);
  m_strPartNumber = reader->GetString("Torvan Part Number");
  m_strVersionNumber = reader->GetString("Version Number");
  m_strType = reader->GetString("Type");
  m_strVIN = reader->GetString("VIN");
  m_strESN = reader->GetString("ESN");
  m_strStartDate = reader->GetString("Start Date");
  m_strEndDate = reader->GetString("End Date");
  m_strPreScript = reader->GetString("Pre-Script");
  m_strPostScript = reader->GetString("Post-Script");
  m_strSaveLocation = reader->GetString("Save Location");

  // The list ends at the first number whose three keys are all empty; a size
  // that truncates to 0 counts as empty.
  for (int n = 1;; ++n) {
    FileKeys keys = KeysOfFile(n);
    _stVersionInfFileInfo record;
    record.strFileName = reader->GetString(keys.name);
    record.strHashValue = reader->GetString(keys.hash);
    record.ullFileSize = SizeFromReader(reader->GetDouble(keys.size));

    if (record.strFileName.empty()) {
      if (record.strHashValue.empty() && record.ullFileSize == 0) break;
      // A file described but not named: the whole list is void. The name
      // index, the count and the flags are left as they are, and this path
      // has no exit mark in the log.
      std::vector<_stVersionInfFileInfo>().swap(m_vecFileInfo);
      return VER_ERR04;
    }

    m_vecFileInfo.push_back(record);
    // A name listed twice keeps the hash of its first listing in the index.
    m_mapFileHash.try_emplace(record.strFileName, record.strHashValue);
    if (record.strFileName.find(".img") != std::string::npos) m_nImgFileIndex = n - 1;
  }

  m_bHasPreScript = !m_strPreScript.empty();
  m_bHasPostScript = !m_strPostScript.empty();
  m_nFileCount = static_cast<int32_t>(m_vecFileInfo.size());
  reader.reset();
  EV_LOG_LEAVE();
  return KALU_NO_ERR;
}

_KALU_Error PrintKALU_VersionParse_TPN(const char* infPath, EV_Version_TPN* manifest) {
  _KALU_Error status = manifest->KALU_Parse_INF(infPath);
  if (status == KALU_NO_ERR) return status;
  printf("KALU Error %d \n", status);
  EV_LOG_ERROR("KALU Error %d \n", status);
  return status;
}
