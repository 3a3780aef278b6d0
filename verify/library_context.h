// The OpenSSL library context of the library's own.
//
// Both signature checks work in it: the certificate file's certificates and
// CRLs are read into it, the PKCS#7 structure is made in it, and through
// that structure the digests and the chain's verification are fetched from
// it. It loads no configuration file and runs on OpenSSL's default provider.
//
// OpenSSL's default context and its configuration belong to the process
// that hosts the library (which may load a configuration for a hardware key
// store, FIPS or TLS, before or after a run): the library neither loads a
// configuration into it nor keeps the host from loading one, and what the
// host configures there does not change the library's verdicts. Hashing
// (Sha256, extract_verify/hash.h) uses no provider at all.
//
// Made on first use and kept for the life of the process. Any thread.
#ifndef VERIFY_LIBRARY_CONTEXT_H_
#define VERIFY_LIBRARY_CONTEXT_H_

#include <openssl/crypto.h>

namespace ev {

OSSL_LIB_CTX* LibraryContext();

}  // namespace ev

#endif  // VERIFY_LIBRARY_CONTEXT_H_
