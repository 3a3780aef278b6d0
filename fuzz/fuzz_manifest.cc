// Fuzz target: the configuration reader and the manifest parser over any
// text, parsed into a fresh manifest object and then a second time into the
// same object (which appends to its file list); the reader is also asked for
// a few keys itself.
#include "fuzz/harness.h"
#include "manifest/version_tpn.h"
#include "platform/hxconfig/HXConfigReader.h"

void fuzz::FuzzOne(const std::string& dir, const uint8_t*, size_t) {
  const std::string path = dir + "/input";
  EV_Version_TPN manifest;
  if (PrintKALU_VersionParse_TPN(path.c_str(), &manifest) == KALU_NO_ERR) {
    PrintKALU_VersionParse_TPN(path.c_str(), &manifest);
  }
  CHXConfigReader reader(path);
  reader.GetString("File1");
  reader.GetDouble("File1 Size");
  reader.GetString("");
}
