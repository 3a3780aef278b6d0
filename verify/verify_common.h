// The steps of a signature check that print and log nothing: the library
// set-up made on every call, the parse of the DER bytes in the library's
// context, the verification parameters, and the text of an OpenSSL error.
// Both checks (verify_by_date and unsign) take them through pkcs7_check,
// which reports each failure in the check's own words; the tool takes them
// to explain a refusal with the objects and parameters the checks use.
//
// Not exported to clients; the tool links this unit's archive,
// ev_verify_steps, which holds the library's context (library_context.h) as
// well. The caller owns what a step returns. Any thread.
#ifndef VERIFY_VERIFY_COMMON_H_
#define VERIFY_VERIFY_COMMON_H_

#include <openssl/x509_vfy.h>

#include <string>

#include "support/openssl_owners.h"

namespace ev {

// Loads the algorithm and error-string tables (repeat calls are harmless).
void LoadOpenSslTables();

// The PKCS#7 structure that the first bytes of `der` encode, made in the
// library's context; null when they encode none. Bytes after the structure
// are ignored.
ev::Pkcs7Ptr ParseInLibraryContext(const unsigned char* der, long length);

enum class ParamSetup { kApplied, kNoParam, kUnknownPurpose, kNotApplied };

// Makes verification parameters that check at `checkTime` for the S/MIME
// signing purpose, with the certificates of the store as trust anchors even
// when they are not self-signed and its revocation lists consulted
// (revocation.h), and installs a copy of them in `store`.
ParamSetup ApplySmimeSignParams(X509_STORE* store, unsigned int checkTime);

// OpenSSL's one-line text for an error code.
std::string ErrorText(unsigned long code);

}  // namespace ev

#endif  // VERIFY_VERIFY_COMMON_H_
