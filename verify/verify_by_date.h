// PKCS#7 verification at the built-in verification time.
//
// Verifies the DER bytes against the certificate file and writes the signed
// content next to `derFilePath`, whose last three characters are replaced by
// "inf". Returns KALU_NO_ERR or SIGN_ERR01; a path shorter than three
// characters throws std::out_of_range. Reentrant apart from OpenSSL's own
// tables; not used by the extraction pipeline.
#ifndef VERIFY_VERIFY_BY_DATE_H_
#define VERIFY_VERIFY_BY_DATE_H_

#include "extract_verify_export.h"

EV_EXPORT unsigned int openSSL_VerifyBasedOnDate(const char* derFilePath, const char* certFilePath,
                                                 const unsigned char* derBuffer, int derLength);

// Stores the built-in verification time (2015-04-07 17:15:06 UTC) and
// returns true; no file is read.
EV_EXPORT bool GetTimeFromFile(unsigned int& verificationTime);

#endif  // VERIFY_VERIFY_BY_DATE_H_
