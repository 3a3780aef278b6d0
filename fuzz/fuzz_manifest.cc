// Fuzz target: the configuration reader and the manifest parser over any
// text. Each input is written as Version.inf and parsed into a fresh
// manifest object, then parsed a second time into the same object (which
// appends to its file list), and the reader is asked for a few keys itself.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "manifest/version_tpn.h"
#include "platform/hxconfig/HXConfigReader.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::QuietProcess();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = fuzz::MakeTempDir() + "/Version.inf";
  fuzz::WriteBytes(path, data, size);

  EV_Version_TPN manifest;
  if (PrintKALU_VersionParse_TPN(path.c_str(), &manifest) == KALU_NO_ERR) {
    PrintKALU_VersionParse_TPN(path.c_str(), &manifest);
  }

  CHXConfigReader reader(path);
  reader.GetString("File1");
  reader.GetDouble("File1 Size");
  reader.GetString("");
  return 0;
}
