// Pieces of the two signature checks (verify_by_date and unsign, whose
// common steps are in pkcs7_check): the library set-up made on every call,
// the verification parameters both apply and the text of an OpenSSL error.
// The OpenSSL objects a check makes are held by the owners of
// support/openssl_owners.h.
//
// Nothing here prints or logs: each check reports in its own name. Not
// exported to clients. Any thread.
#ifndef VERIFY_VERIFY_COMMON_H_
#define VERIFY_VERIFY_COMMON_H_

#include <openssl/bio.h>
#include <openssl/x509_vfy.h>

#include <string>

namespace verify_internal {

// Loads the algorithm and error-string tables (repeat calls are harmless).
void LoadOpenSslTables();

enum class ParamSetup { kApplied, kUnknownPurpose, kNotApplied };

// Makes `param` check at `checkTime` for the S/MIME signing purpose, with
// the certificates of the store as trust anchors even when they are not
// self-signed and its revocation lists consulted (revocation.h), and
// installs it in `store`.
ParamSetup ApplySmimeSignParams(X509_STORE* store, X509_VERIFY_PARAM* param,
                                unsigned int checkTime);

// OpenSSL's one-line text for an error code.
std::string ErrorText(unsigned long code);

// A file BIO writing `path` (created, truncated, 0666 less the umask), or
// null when it cannot be opened; a symbolic link at `path` is not followed.
BIO* NewOutputFile(const std::string& path);

}  // namespace verify_internal

#endif  // VERIFY_VERIFY_COMMON_H_
