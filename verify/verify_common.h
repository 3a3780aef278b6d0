// Pieces of the two signature checks (verify_by_date and unsign, whose
// common steps are in pkcs7_check): scoped owners of the OpenSSL objects one
// check makes, the library set-up made on every call, the verification
// parameters both apply and the text of an OpenSSL error.
//
// Nothing here prints or logs: each check reports in its own name. Not
// exported to clients. Any thread.
#ifndef VERIFY_VERIFY_COMMON_H_
#define VERIFY_VERIFY_COMMON_H_

#include <openssl/bio.h>
#include <openssl/pkcs7.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <string>

namespace verify_internal {

struct StoreFree {
  void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};
struct ParamFree {
  void operator()(X509_VERIFY_PARAM* param) const { X509_VERIFY_PARAM_free(param); }
};
struct BioFree {
  void operator()(BIO* bio) const { BIO_free_all(bio); }
};
struct Pkcs7Free {
  void operator()(PKCS7* p7) const { PKCS7_free(p7); }
};
using StorePtr = std::unique_ptr<X509_STORE, StoreFree>;
using ParamPtr = std::unique_ptr<X509_VERIFY_PARAM, ParamFree>;
using BioPtr = std::unique_ptr<BIO, BioFree>;
using Pkcs7Ptr = std::unique_ptr<PKCS7, Pkcs7Free>;

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
