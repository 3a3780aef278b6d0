// Certificate store shared by both signature checks.
//
// create_store builds an X509_STORE from a PEM certificate file (or OpenSSL's
// default file) plus a hashed directory (or OpenSSL's default directory); the
// caller owns and frees the store. Diagnostics, when a BIO is given, go there
// as well as to standard output and the log. Any thread.
#ifndef VERIFY_CERT_STORE_H_
#define VERIFY_CERT_STORE_H_

#include <openssl/ossl_typ.h>

#include "extract_verify_export.h"

EV_EXPORT X509_STORE* create_store(BIO* diagnostics, const char* certFile, const char* certDir);

#endif  // VERIFY_CERT_STORE_H_
