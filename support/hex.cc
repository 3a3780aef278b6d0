#include "support/hex.h"

namespace ev {

std::string LowerHex(const unsigned char* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0f];
  }
  return text;
}

}  // namespace ev
