// Fuzz target: the signature check of Version.der over any bytes, against
// the fixed PKI. The bytes are handed over in a buffer of exactly their size,
// so that any read past them is caught (the pipeline itself always passes
// its whole 4096-byte buffer).
#include <vector>

#include "fuzz/harness.h"
#include "verify/unsign.h"

void fuzz::FuzzOne(const std::string& dir, const uint8_t* data, size_t size) {
  const std::vector<unsigned char> der(data, data + size);
  EV_Unsign_using_date((dir + "/Version.inf").c_str(), FixedPki::Get().trustFile().c_str(),
                       der.empty() ? nullptr : der.data(), static_cast<int>(der.size()));
}
