#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "extract_verify/verify.h"
#include "platform/log.h"
#include "verify/pkcs7_check.h"
#include "verify/verify_common.h"

using ev::kLogError;
using ev::kLogInfo;

namespace {

constexpr char kName[] = "EV_Unsign_using_date";

// Characters up to the seconds of a GeneralizedTime ("YYYYMMDDhhmmss").
constexpr size_t kLongestTimeText = 14;

// The certificates carried in a signed (or signed-and-enveloped) structure;
// null for any other content type. Both structures keep the list in the
// same place, so the signed-data view serves for both.
STACK_OF(X509) * CarriedCertificates(const PKCS7* p7, int type) {
  if (type != NID_pkcs7_signed && type != NID_pkcs7_signedAndEnveloped) return nullptr;
  return p7->d.sign != nullptr ? p7->d.sign->cert : nullptr;
}

// A digit's value without any check, as the certificate's time text is
// trusted to be digits.
int Digit(const unsigned char* text, int at) { return text[at] - 48; }
int TwoDigits(const unsigned char* text, int at) {
  return Digit(text, at) * 10 + Digit(text, at + 1);
}

// Fills month, day, hour, minute and second from the two-digit fields that
// start at `at`.
void ReadMonthToSecond(const unsigned char* text, int at, std::tm* tm) {
  tm->tm_mon = TwoDigits(text, at) - 1;
  tm->tm_mday = TwoDigits(text, at + 2);
  tm->tm_hour = TwoDigits(text, at + 4);
  tm->tm_min = TwoDigits(text, at + 6);
  tm->tm_sec = TwoDigits(text, at + 8);
}

// The verification time is the start of validity of the one certificate
// carried, so a package must carry exactly its signer's.
bool CarriedCertificateStart(PKCS7* p7, unsigned int& verificationTime) {
  const int type = OBJ_obj2nid(p7->type);
  if (type != NID_pkcs7_signed && type != NID_pkcs7_signedAndEnveloped) {
    printf("Value of l_p7type = %d\n", type);
    EV_LOG_AS(kName, kLogInfo, "Value of l_p7type = %d", type);
  }
  STACK_OF(X509)* certs = CarriedCertificates(p7, type);
  if (certs == nullptr || sk_X509_num(certs) != 1) {
    printf("More than 1 Cert @ DER, can't proceed\n");
    EV_LOG_AS(kName, kLogInfo, "More than 1 Cert @ DER, can't proceed");
    return false;
  }
  ASN1_TIME* notBefore = X509_getm_notBefore(sk_X509_value(certs, 0));
  if (EVGetTimefrmASN1Format(notBefore, verificationTime) != 0) {
    printf("Failed to read date from DER\n");
    EV_LOG_AS(kName, kLogError, "Failed to read date from DER");
    return false;
  }
  return true;
}

void ReportErrorText(const ev::Pkcs7CheckCall&, unsigned long error) {
  const std::string details = ev::ErrorText(error);
  printf("Verification Failed PKCS7_verify() - Error Details:%s\n", details.c_str());
  EV_LOG_AS(kName, kLogError, "Verification Failed PKCS7_verify() - Error Details:%s ",
            details.c_str());
}

// The carried certificates are offered for building the chain (here only
// the signer's own, so the certificate file must hold the rest of it); CRLs
// carried in the structure are ignored.
const ev::Pkcs7Check kUnsignCheck = {
    kName,
    {"Failed Del: %s / %d", "Failed Del: %s / %d ", kLogError},
    {"Version Der Buffer is NULL\n", "Version Der Buffer is NULL", kLogInfo},
    {"failed to create PKCS7 structure from given DER Buffer\n",
     "failed to create PKCS7 structure from given DER Buffer", kLogError},
    {"Failed to create X509_STORE!\n", "Failed to create X509_STORE!", kLogError},
    {"Failed to create X509_VERIFY_PARAM_new()\n", "Failed to create X509_VERIFY_PARAM_new()",
     kLogError},
    {"error: undefined purpose!\n", "error: undefined purpose!", kLogError},
    {"failed to add X509_VERIFY_PARAM to X509_STORE\n",
     "failed to add X509_VERIFY_PARAM to X509_STORE", kLogError},
    {"Failed to create output file:%s\n ", "Failed to create output file:%s ", kLogError},
    PKCS7_NOCRL,
    CarriedCertificateStart,
    ReportErrorText,
};

}  // namespace

int EVGetTimefrmASN1Format(asn1_string_st* time, unsigned int& seconds) {
  EV_LOG_ENTER();
  std::tm tm{};
  // The fields are read at fixed places without checking the length. A time
  // from a crafted certificate may be shorter than that, so read from a copy
  // whose missing characters are NULs rather than past the string's end.
  unsigned char text[kLongestTimeText] = {};
  int length = ASN1_STRING_length(time);
  if (length > 0) {
    std::memcpy(text, ASN1_STRING_get0_data(time),
                std::min<size_t>(static_cast<size_t>(length), sizeof text));
  }
  switch (ASN1_STRING_type(time)) {
    case V_ASN1_UTCTIME:
      tm.tm_year = TwoDigits(text, 0);
      if (tm.tm_year <= 69) tm.tm_year += 100;  // 00-69 are 2000-2069
      ReadMonthToSecond(text, 2, &tm);
      break;
    case V_ASN1_GENERALIZEDTIME:
      tm.tm_year = TwoDigits(text, 0) * 100 + TwoDigits(text, 2) - 1900;
      ReadMonthToSecond(text, 4, &tm);
      break;
    default:
      ReadMonthToSecond(text, 0, &tm);
      break;
  }
  printf("Time [@ DER] in GMT: %s", asctime(&tm));
  EV_LOG_INFO("Time [@ DER] in GMT: %s", asctime(&tm));
  // mktime reads the fields as local time, so the result is the
  // certificate's UTC instant only when the process's time zone is UTC.
  seconds = static_cast<unsigned int>(mktime(&tm));
  EV_LOG_LEAVE();
  return 0;
}

unsigned int EV_Unsign_using_date(const char* manifestPath, const char* certFilePath,
                                  const unsigned char* derBuffer, int derLength) {
  EV_LOG_ENTER();
  const unsigned int result = ev::RunPkcs7Check(
      kUnsignCheck, {manifestPath, manifestPath, certFilePath, derBuffer, derLength});
  EV_LOG_LEAVE();
  return result;
}
