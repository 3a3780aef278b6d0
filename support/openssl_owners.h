// Scoped owners of OpenSSL objects: one unique_ptr alias per type, whose
// deleter calls that type's own OpenSSL free function. The signature checks,
// the tool and the throwaway PKI all hold their OpenSSL objects in these, so
// that each type is freed by the one right call everywhere (BIO_free_all for
// a BIO, which may head a chain).
//
// Header-only; neither exported nor installed. An owner, like the object it
// holds, is used by one thread at a time.
#ifndef SUPPORT_OPENSSL_OWNERS_H_
#define SUPPORT_OPENSSL_OWNERS_H_

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <memory>

namespace ev {

template <typename T, void (*Free)(T*)>
struct OpenSslFree {
  void operator()(T* object) const { Free(object); }
};

template <typename T, void (*Free)(T*)>
using OpenSslPtr = std::unique_ptr<T, OpenSslFree<T, Free>>;

using Asn1TimePtr = OpenSslPtr<ASN1_TIME, ASN1_TIME_free>;
using BioPtr = OpenSslPtr<BIO, BIO_free_all>;
using CertPtr = OpenSslPtr<X509, X509_free>;
using CrlPtr = OpenSslPtr<X509_CRL, X509_CRL_free>;
using KeyPtr = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using Pkcs7Ptr = OpenSslPtr<PKCS7, PKCS7_free>;
using StorePtr = OpenSslPtr<X509_STORE, X509_STORE_free>;
using StoreContextPtr = OpenSslPtr<X509_STORE_CTX, X509_STORE_CTX_free>;
using VerifyParamPtr = OpenSslPtr<X509_VERIFY_PARAM, X509_VERIFY_PARAM_free>;

}  // namespace ev

#endif  // SUPPORT_OPENSSL_OWNERS_H_
