// Starts OpenSSL for the library without reading any configuration file.
//
// OpenSSL 3 reads its configuration (the file named by OPENSSL_CONF, or its
// built-in default) on first use, and a configuration can replace the
// providers that the digest and the signature check run on. Every unit that
// calls OpenSSL calls StartOpenSsl first, so whichever comes first in a
// process, no configuration is ever loaded. A client that has already
// started OpenSSL itself keeps what it chose. Any thread; cheap once done.
#ifndef SUPPORT_OPENSSL_START_H_
#define SUPPORT_OPENSSL_START_H_

namespace support_internal {

void StartOpenSsl();

}  // namespace support_internal

#endif  // SUPPORT_OPENSSL_START_H_
