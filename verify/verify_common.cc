// The 1.0.2-style initialisation calls are kept on purpose; silence their
// deprecation here only.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "verify/verify_common.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include "verify/library_context.h"
#include "verify/revocation.h"

namespace ev {

void LoadOpenSslTables() {
  // In OpenSSL 3 both calls are effectively no-ops: initialisation is
  // automatic, and they merely ask for tables that are loaded once per
  // process anyway. They stay so that each check still prepares the library
  // itself before using it. Neither loads a configuration, nor keeps the
  // host from loading one.
  OPENSSL_add_all_algorithms_noconf();
  ERR_load_crypto_strings();
}

ev::Pkcs7Ptr ParseInLibraryContext(const unsigned char* der, long length) {
  // The structure is made in the library's context first: d2i_PKCS7 keeps
  // the context of the structure it fills, and PKCS7_verify fetches its
  // digests and builds its verification in the structure's context. A
  // failed parse frees the structure.
  const unsigned char* cursor = der;
  PKCS7* p7 = PKCS7_new_ex(LibraryContext(), nullptr);
  if (p7 != nullptr) d2i_PKCS7(&p7, &cursor, length);
  return ev::Pkcs7Ptr(p7);
}

ParamSetup ApplySmimeSignParams(X509_STORE* store, unsigned int checkTime) {
  // The store keeps a copy: the parameters end with this call.
  const ev::VerifyParamPtr param(X509_VERIFY_PARAM_new());
  if (param == nullptr) return ParamSetup::kNoParam;
  X509_VERIFY_PARAM_set_time(param.get(), static_cast<time_t>(checkTime));
  const int index = X509_PURPOSE_get_by_sname("smimesign");
  if (index < 0) return ParamSetup::kUnknownPurpose;
  const int purpose = X509_PURPOSE_get_id(X509_PURPOSE_get0(index));

  // The purpose is set twice and only the first result decides; every call
  // is made before any result is looked at.
  const int purposeSet = X509_VERIFY_PARAM_set_purpose(param.get(), purpose);
  X509_VERIFY_PARAM_set_purpose(param.get(), purpose);
  // A certificate of the certificate file anchors a chain even when it is
  // not self-signed (an intermediate, or the signer itself); revocation
  // lists in the file are consulted.
  const int flagsSet = X509_VERIFY_PARAM_set_flags(
      param.get(), X509_V_FLAG_PARTIAL_CHAIN | ConsultRevocationLists(store));
  const int storeSet = X509_STORE_set1_param(store, param.get());
  if (purposeSet == 0 || flagsSet == 0 || storeSet == 0) return ParamSetup::kNotApplied;
  return ParamSetup::kApplied;
}

std::string ErrorText(unsigned long code) {
  char text[256];
  ERR_error_string_n(code, text, sizeof(text));
  return text;
}

}  // namespace ev
