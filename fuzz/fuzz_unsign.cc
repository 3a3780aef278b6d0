// Fuzz target: the signature check of Version.der over any bytes, against
// the fixed PKI of the process. The bytes are handed over in a buffer of
// exactly their size, so that any read past them is caught (the pipeline
// itself always passes its whole 4096-byte buffer).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "verify/unsign.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::QuietProcess();
  fuzz::FixedPki::Get();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::FixedPki& pki = fuzz::FixedPki::Get();
  static const std::string manifestPath = pki.workDir() + "/Version.inf";
  const std::vector<unsigned char> der(data, data + size);
  EV_Unsign_using_date(manifestPath.c_str(), pki.trustFile().c_str(),
                       der.empty() ? nullptr : der.data(), static_cast<int>(der.size()));
  return 0;
}
