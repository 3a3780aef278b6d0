// The two signature checks of Version.der and the certificate store they
// share. The extraction pipeline runs EV_Unsign_using_date; the others are
// offered to clients that check a signed manifest themselves.
//
// create_store builds an X509_STORE from a PEM certificate file (or
// OpenSSL's default file) plus a hashed directory (or OpenSSL's default
// directory); the caller owns the store and frees it with OpenSSL's
// X509_STORE_free. Diagnostics, when a BIO is given, go there as well as to
// standard output and the log. Any thread.
//
// EV_Unsign_using_date requires exactly one certificate in the signed
// structure, verifies at that certificate's notBefore and writes the signed
// content to `manifestPath` (deleted first). Any thread, one call at a time:
// EVGetTimefrmASN1Format uses asctime's shared buffer.
//
// openSSL_VerifyBasedOnDate verifies at the built-in verification time and
// writes the signed content next to `derFilePath`, whose last three
// characters are replaced by "inf"; a path shorter than three characters
// throws std::out_of_range. Reentrant.
//
// Both return KALU_NO_ERR or SIGN_ERR01. The library's OpenSSL work runs in
// a library context of its own: the process's default context and its
// configuration stay the client's.
#ifndef EXTRACT_VERIFY_VERIFY_H_
#define EXTRACT_VERIFY_VERIFY_H_

#include "extract_verify/export.h"

// OpenSSL's types, declared as OpenSSL declares them, so that a client needs
// no OpenSSL header for them.
struct asn1_string_st;
typedef struct bio_st BIO;
typedef struct x509_store_st X509_STORE;

EV_EXPORT X509_STORE* create_store(BIO* diagnostics, const char* certFile, const char* certDir);

EV_EXPORT unsigned int EV_Unsign_using_date(const char* manifestPath, const char* certFilePath,
                                            const unsigned char* derBuffer, int derLength);

// Converts a certificate time to seconds through mktime (the process's time
// zone); always returns 0.
EV_EXPORT int EVGetTimefrmASN1Format(asn1_string_st* time, unsigned int& seconds);

EV_EXPORT unsigned int openSSL_VerifyBasedOnDate(const char* derFilePath, const char* certFilePath,
                                                 const unsigned char* derBuffer, int derLength);

// Stores the built-in verification time (2015-04-07 17:15:06 UTC) and
// returns true; no file is read.
EV_EXPORT bool GetTimeFromFile(unsigned int& verificationTime);

#endif  // EXTRACT_VERIFY_VERIFY_H_
