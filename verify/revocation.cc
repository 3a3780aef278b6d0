#include "verify/revocation.h"

#include <openssl/x509.h>

namespace ev {

namespace {

bool HoldsRevocationLists(X509_STORE* store) {
  STACK_OF(X509_OBJECT)* objects = X509_STORE_get0_objects(store);
  for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
    if (X509_OBJECT_get_type(sk_X509_OBJECT_value(objects, i)) == X509_LU_CRL) return true;
  }
  return false;
}

// The slot of a store in which the callback leaves its mark; one for the
// process, taken on first use.
int RevokedMarkSlot() {
  static const int slot = X509_STORE_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return slot;
}

// Lets a CRL's dates pass and a CA without a CRL in the file pass (see the
// header), and marks the store when the signer is found revoked, since the
// error PKCS7_verify reports does not say so.
int ConsultOnVerify(int ok, X509_STORE_CTX* context) {
  if (ok != 0) return ok;
  switch (X509_STORE_CTX_get_error(context)) {
    case X509_V_ERR_UNABLE_TO_GET_CRL:
    case X509_V_ERR_CRL_NOT_YET_VALID:
    case X509_V_ERR_CRL_HAS_EXPIRED:
      return 1;
    case X509_V_ERR_CERT_REVOKED: {
      X509_STORE* store = X509_STORE_CTX_get0_store(context);
      X509_STORE_set_ex_data(store, RevokedMarkSlot(), store);
      return 0;
    }
    default:
      return 0;
  }
}

}  // namespace

unsigned long ConsultRevocationLists(X509_STORE* store) {
  if (!HoldsRevocationLists(store)) return 0;
  X509_STORE_set_verify_cb(store, ConsultOnVerify);
  return X509_V_FLAG_CRL_CHECK;
}

bool FoundSignerRevoked(X509_STORE* store) {
  return X509_STORE_get_ex_data(store, RevokedMarkSlot()) != nullptr;
}

}  // namespace ev
