#include <cstdio>
#include <map>
#include <string>

#include "extract_verify/extraction.h"
#include "platform/log.h"

_KALU_Error compareHashValues() {
  EV_LOG_ENTER();
  if (!g_objKALU_Version_TPN->m_bVersionInfFound) {
    EV_LOG_LEAVE();
    return VER_ERR01;
  }
  const std::map<std::string, std::string>& listed = g_objKALU_Version_TPN->m_mapFileHash;
  for (const auto& written : g_hashResult) {
    const char* name = written.first.c_str();
    const char* digest = written.second.c_str();
    auto entry = listed.find(written.first);
    if (entry == listed.end()) {
      printf("!!!! File Not Found in Version.inf - [File Name] %s \n", name);
      printf("Extracted file Hash Value : %s \n", digest);
      EV_LOG_INFO("!!!! File Not Found in Version.inf - [File Name] %s  ", name);
      EV_LOG_INFO("Extracted file Hash Value : %s ", digest);
      EV_LOG_LEAVE();
      return SIGN_ERR02;
    }
    const char* manifestDigest = entry->second.c_str();
    // The digest text counts up to its first NUL; no case folding, no trimming.
    if (entry->second != std::string(digest)) {
      printf("!!!! HashValue Mismatch Error - [File Name] %s \n", name);
      printf("Version Inf Hash Value    : %s \n", manifestDigest);
      printf("Extracted file Hash Value : %s \n", digest);
      EV_LOG_INFO("!!!! HashValue Mismatch Error - [File Name] %s", name);
      EV_LOG_INFO("Version Inf Hash Value    : %s", manifestDigest);
      EV_LOG_INFO("Extracted file Hash Value : %s", digest);
      EV_LOG_LEAVE();
      return SIGN_ERR02;
    }
    printf("HashValues are Same - [File Name] %s \n", name);
    printf("Version Inf Hash Value    : %s \n", manifestDigest);
    printf("Extracted file Hash Value : %s \n", digest);
    EV_LOG_INFO("HashValues are Same - [File Name] %s", name);
    EV_LOG_INFO("Version Inf Hash Value    : %s", manifestDigest);
    EV_LOG_INFO("Extracted file Hash Value : %s ", digest);
  }
  EV_LOG_LEAVE();
  return KALU_NO_ERR;
}
