// PKCS#7 verification at the signer's start of validity, as the extraction
// pipeline runs it on Version.der.
//
// EV_Unsign_using_date requires exactly one certificate in the structure,
// verifies at that certificate's notBefore and writes the signed content to
// `manifestPath` (deleted first). Returns KALU_NO_ERR or SIGN_ERR01. Runs on
// the extract thread; EVGetTimefrmASN1Format uses asctime's shared buffer and
// is not safe against another thread converting at the same moment.
#ifndef VERIFY_UNSIGN_H_
#define VERIFY_UNSIGN_H_

#include <openssl/ossl_typ.h>

#include "extract_verify_export.h"

EV_EXPORT unsigned int EV_Unsign_using_date(const char* manifestPath, const char* certFilePath,
                                            const unsigned char* derBuffer, int derLength);

// Converts a certificate time to seconds through mktime (the process's time
// zone); always returns 0.
EV_EXPORT int EVGetTimefrmASN1Format(asn1_string_st* time, unsigned int& seconds);

#endif  // VERIFY_UNSIGN_H_
