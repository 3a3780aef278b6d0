// The 1.0.2-style initialisation calls are kept on purpose; silence their
// deprecation here only.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "verify/verify_common.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include "platform/file_io.h"
#include "verify/revocation.h"

namespace verify_internal {

void LoadOpenSslTables() {
  // In OpenSSL 3 both calls are effectively no-ops: initialisation is
  // automatic, and they merely ask for tables that are loaded once per
  // process anyway. They stay so that each check still prepares the library
  // itself before using it. Neither loads a configuration, nor keeps the
  // host from loading one.
  OPENSSL_add_all_algorithms_noconf();
  ERR_load_crypto_strings();
}

ParamSetup ApplySmimeSignParams(X509_STORE* store, X509_VERIFY_PARAM* param,
                                unsigned int checkTime) {
  X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(checkTime));
  const int index = X509_PURPOSE_get_by_sname("smimesign");
  if (index < 0) return ParamSetup::kUnknownPurpose;
  const int purpose = X509_PURPOSE_get_id(X509_PURPOSE_get0(index));

  // The purpose is set twice and only the first result decides; every call
  // is made before any result is looked at.
  const int purposeSet = X509_VERIFY_PARAM_set_purpose(param, purpose);
  X509_VERIFY_PARAM_set_purpose(param, purpose);
  // A certificate of the certificate file anchors a chain even when it is
  // not self-signed (an intermediate, or the signer itself); revocation
  // lists in the file are consulted.
  const int flagsSet =
      X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_PARTIAL_CHAIN | ConsultRevocationLists(store));
  const int storeSet = X509_STORE_set1_param(store, param);
  if (purposeSet == 0 || flagsSet == 0 || storeSet == 0) return ParamSetup::kNotApplied;
  return ParamSetup::kApplied;
}

std::string ErrorText(unsigned long code) {
  char text[256];
  ERR_error_string_n(code, text, sizeof(text));
  return text;
}

BIO* NewOutputFile(const std::string& path) {
  int fd = platform::OpenForWriting(path.c_str());
  if (fd < 0) return nullptr;
  BIO* bio = BIO_new_fd(fd, BIO_CLOSE);
  if (bio == nullptr) platform::Close(fd);
  return bio;
}

}  // namespace verify_internal
