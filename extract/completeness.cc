#include <cstdio>
#include <cstring>
#include <string>

#include "extract_verify/extraction.h"
#include "platform/log.h"

using ev::kLogError;
using ev::kLogInfo;

namespace {

// Names are told apart over as many characters as the entry filter uses.
const size_t kNameCompareLength = 255;

bool IsInterestedFile(const std::string& name) {
  return strncmp(name.c_str(), g_interesetedFileName.c_str(), kNameCompareLength) == 0;
}

bool IsSelected(const std::string& name) {
  switch (g_eExtractionType) {
    case EXTRACTION_SINGLE_FILE:
      return IsInterestedFile(name);
    case EXTRACTION_EXCLUDE_FILE:
      return !IsInterestedFile(name);
    default:
      return true;
  }
}

bool WasWritten(const _stVersionInfFileInfo& file, const EV_Version_TPN& manifest) {
  auto written = g_hashResult.find(file.strFileName);
  // The digest is compared with the first listing of the name, as the run's
  // own comparison does.
  return written != g_hashResult.end() &&
         written->second == manifest.m_mapFileHash.at(file.strFileName);
}

_KALU_Error ReportMissing(const std::string& name) {
  printf("!!!! File Not Extracted - [File Name] %s \n", name.c_str());
  EV_LOG_AS("CheckExtractionCompleteness", kLogError, "!!!! File Not Extracted - [File Name] %s",
            name.c_str());
  EV_LOG_AS("CheckExtractionCompleteness", kLogInfo, "-");
  return SIGN_ERR02;
}

}  // namespace

_KALU_Error CheckExtractionCompleteness() {
  EV_LOG_ENTER();
  const EV_Version_TPN* manifest = g_objKALU_Version_TPN;
  if (manifest == nullptr || !manifest->m_bVersionInfFound) {
    EV_LOG_LEAVE();
    return VER_ERR01;
  }
  bool selectedListed = false;
  for (const _stVersionInfFileInfo& file : manifest->m_vecFileInfo) {
    if (!IsSelected(file.strFileName)) continue;
    selectedListed = true;
    if (!WasWritten(file, *manifest)) return ReportMissing(file.strFileName);
  }
  if (g_eExtractionType == EXTRACTION_SINGLE_FILE && !selectedListed) {
    return ReportMissing(g_interesetedFileName);
  }
  EV_LOG_LEAVE();
  return KALU_NO_ERR;
}
