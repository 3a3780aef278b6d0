// The package manifest Version.inf in memory, and its parser.
//
// One EV_Version_TPN per extraction run, created by ResetGlobalVariables and
// held in g_objKALU_Version_TPN; the extract thread parses Version.inf into it
// and the caller's thread reads it after the extract thread has been joined.
// The text is read through the platform configuration reader. Parsing runs on
// the calling thread and throws only when memory runs out.
//
// The current date as the system's `date +%F` prints it, newline included
// ("YYYY-MM-DD\n"), or "" when the command cannot be started. Any thread.
#ifndef EXTRACT_VERIFY_MANIFEST_H_
#define EXTRACT_VERIFY_MANIFEST_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "extract_verify/export.h"
#include "extract_verify/status.h"

// One file of the manifest: File n, File n Hash Value, File n Size.
struct _stVersionInfFileInfo {
  std::string strFileName;
  std::string strHashValue;
  uint64_t ullFileSize = 0;
};

class EV_EXPORT EV_Version_TPN {
 public:
  EV_Version_TPN();
  ~EV_Version_TPN();

  // Reads the manifest at `infPath` into this object: KALU_NO_ERR, VER_ERR01
  // (not readable) or VER_ERR04 (a file entry with a value but no name).
  _KALU_Error KALU_Parse_INF(const char* infPath);

  std::string m_strPartNumber;
  std::string m_strVersionNumber;
  std::string m_strType;
  std::string m_strVIN;
  std::string m_strESN;
  std::string m_strStartDate;
  std::string m_strEndDate;
  std::string m_strPreScript;
  std::string m_strPostScript;
  std::string m_strSaveLocation;
  uint64_t m_ullReserved = 0;  // kept for clients; not used by this library
  std::vector<_stVersionInfFileInfo> m_vecFileInfo;
  std::map<std::string, std::string> m_mapFileHash;  // name -> hash of its first listing
  int32_t m_nFileCount = 0;
  int32_t m_nImgFileIndex = 0;  // position of the last file whose name contains ".img"
  std::string m_strReserved1;   // kept for clients; not used by this library
  std::string m_strReserved2;   // kept for clients; not used by this library
  int32_t m_nReserved = 0;      // kept for clients; not used by this library
  bool m_bVersionInfFound = false;
  bool m_bReserved = false;  // kept for clients; not used by this library
  bool m_bHasPreScript = false;
  bool m_bHasPostScript = false;
};

// Parses `infPath` into `manifest`; prints "KALU Error %d \n" on failure.
EV_EXPORT _KALU_Error PrintKALU_VersionParse_TPN(const char* infPath, EV_Version_TPN* manifest);

EV_EXPORT std::string _GetSystemDate();

#endif  // EXTRACT_VERIFY_MANIFEST_H_
