// Lower-case hexadecimal text of bytes: how the signed manifest writes a
// SHA-256, and so how the library records every file's digest and how the
// package writer and the tool write and report them. One function, so that
// what is written and what it is compared with cannot differ in form.
//
// A pure function; any thread.
#ifndef SUPPORT_HEX_H_
#define SUPPORT_HEX_H_

#include <cstddef>
#include <string>

namespace ev {

// Two digits per byte, the high half first: {0x0f, 0xa0} gives "0fa0".
std::string LowerHex(const unsigned char* bytes, size_t count);

}  // namespace ev

#endif  // SUPPORT_HEX_H_
