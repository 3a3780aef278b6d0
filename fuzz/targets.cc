// The fuzz targets, one per build of this file (EV_FUZZ_TARGET names it):
//   manifest: the configuration reader and the manifest parser over any text,
//             parsed twice into the same object (which appends to its list);
//   unsign:   the signature check of Version.der over any bytes, handed over
//             in a buffer of exactly their size so that a read past them is
//             caught (the pipeline itself always passes 4096 bytes);
//   extract:  a whole extraction run over any package; the input's size
//             picks a full run, only "readme.txt", or all but it.
#include <sys/stat.h>

#include <vector>

#include "extract_verify/extraction.h"
#include "extract_verify/manifest.h"
#include "extract_verify/verify.h"
#include "fuzz/harness.h"
#include "platform/hxconfig/HXConfigReader.h"

#define EV_TARGET_IS(name) (std::string(EV_FUZZ_TARGET) == name)

// A run ends by flushing the file systems twice, which matters on the head
// unit and only costs time here: the fuzzer's files are thrown away.
extern "C" void sync(void) {}

void fuzz::FuzzOne(const std::string& dir, const uint8_t* data, size_t size) {
  const std::string input = dir + "/input";
  if (EV_TARGET_IS("manifest")) {
    EV_Version_TPN manifest;
    if (PrintKALU_VersionParse_TPN(input.c_str(), &manifest) == KALU_NO_ERR) {
      PrintKALU_VersionParse_TPN(input.c_str(), &manifest);
    }
    CHXConfigReader reader(input);
    reader.GetString("");
    reader.GetDouble("File1 Size");
  } else if (EV_TARGET_IS("unsign")) {
    const std::vector<unsigned char> der(data, data + size);
    EV_Unsign_using_date((dir + "/Version.inf").c_str(), TrustFile().c_str(),
                         der.empty() ? nullptr : der.data(), static_cast<int>(size));
  } else {
    mkdir((dir + "/out").c_str(), 0755);
    ExtractWithHash(TrustFile().c_str(), input.c_str(), (dir + "/out").c_str(),
                    size % 3 == 0 ? nullptr : "readme.txt", size % 3 == 2);
  }
}
