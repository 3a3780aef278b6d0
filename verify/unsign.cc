#include "verify/unsign.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cstdio>
#include <ctime>
#include <string>

#include "platform/file_io.h"
#include "platform/log.h"
#include "status/kalu_status.h"
#include "verify/cert_store.h"
#include "verify/verify_common.h"

using verify_internal::ApplySmimeSignParams;
using verify_internal::BioPtr;
using verify_internal::ParamPtr;
using verify_internal::ParamSetup;
using verify_internal::Pkcs7Ptr;
using verify_internal::StorePtr;

namespace {

// Characters up to the seconds of a GeneralizedTime ("YYYYMMDDhhmmss").
constexpr size_t kLongestTimeText = 14;

// The certificates carried in a signed (or signed-and-enveloped) structure;
// null for any other content type. Both structures keep the list in the
// same place, so the signed-data view serves for both.
STACK_OF(X509)* CarriedCertificates(const PKCS7* p7, int type) {
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
  const std::string outputPath(manifestPath);

  // A manifest of an earlier run must not survive a failed verification.
  if (platform::RemoveFile(outputPath.c_str()) != 0) {
    const int error = errno;
    printf("Failed Del: %s / %d", outputPath.c_str(), error);
    EV_LOG_ERROR("Failed Del: %s / %d ", outputPath.c_str(), error);
  }
  verify_internal::LoadOpenSslTables();

  unsigned int result = SIGN_ERR01;
  Pkcs7Ptr p7;
  StorePtr store;
  ParamPtr param;
  BioPtr output;
  do {
    if (derBuffer == nullptr) {
      printf("Version Der Buffer is NULL\n");
      EV_LOG_INFO("Version Der Buffer is NULL");
      break;
    }
    // The buffer may be longer than the structure; the rest is ignored.
    const unsigned char* cursor = derBuffer;
    p7.reset(d2i_PKCS7(nullptr, &cursor, derLength));
    if (p7 == nullptr) {
      printf("failed to create PKCS7 structure from given DER Buffer\n");
      EV_LOG_ERROR("failed to create PKCS7 structure from given DER Buffer");
      break;
    }
    store.reset(create_store(nullptr, certFilePath, nullptr));
    if (store == nullptr) {
      printf("Failed to create X509_STORE!\n");
      EV_LOG_ERROR("Failed to create X509_STORE!");
      break;
    }
    const int type = OBJ_obj2nid(p7->type);
    if (type != NID_pkcs7_signed && type != NID_pkcs7_signedAndEnveloped) {
      printf("Value of l_p7type = %d\n", type);
      EV_LOG_INFO("Value of l_p7type = %d", type);
    }
    // The verification time comes from the one certificate carried, so a
    // package must carry exactly its signer's.
    STACK_OF(X509)* certs = CarriedCertificates(p7.get(), type);
    if (certs == nullptr || sk_X509_num(certs) != 1) {
      printf("More than 1 Cert @ DER, can't proceed\n");
      EV_LOG_INFO("More than 1 Cert @ DER, can't proceed");
      break;
    }
    unsigned int verificationTime = 0;
    ASN1_TIME* notBefore = X509_getm_notBefore(sk_X509_value(certs, 0));
    if (EVGetTimefrmASN1Format(notBefore, verificationTime) != 0) {
      printf("Failed to read date from DER\n");
      EV_LOG_ERROR("Failed to read date from DER");
      break;
    }
    param.reset(X509_VERIFY_PARAM_new());
    if (param == nullptr) {
      printf("Failed to create X509_VERIFY_PARAM_new()\n");
      EV_LOG_ERROR("Failed to create X509_VERIFY_PARAM_new()");
      break;
    }
    const ParamSetup setup = ApplySmimeSignParams(store.get(), param.get(), verificationTime);
    if (setup == ParamSetup::kUnknownPurpose) {
      printf("error: undefined purpose!\n");
      EV_LOG_ERROR("error: undefined purpose!");
      break;
    }
    if (setup == ParamSetup::kNotApplied) {
      printf("failed to add X509_VERIFY_PARAM to X509_STORE\n");
      EV_LOG_ERROR("failed to add X509_VERIFY_PARAM to X509_STORE");
      break;
    }
    // Without an output the signature is still checked; only the content
    // is not written.
    output.reset(verify_internal::NewOutputFile(outputPath));
    if (output == nullptr) {
      printf("Failed to create output file:%s\n ", outputPath.c_str());
      EV_LOG_ERROR("Failed to create output file:%s ", outputPath.c_str());
    }
    // The carried certificates are offered for building the chain (here only
    // the signer's own, so the certificate file must hold the rest of it);
    // CRLs carried in the structure are ignored.
    if (PKCS7_verify(p7.get(), nullptr, store.get(), nullptr, output.get(), PKCS7_NOCRL) == 1) {
      result = KALU_NO_ERR;
      break;
    }
    const std::string details = verify_internal::ErrorText(ERR_get_error());
    printf("Verification Failed PKCS7_verify() - Error Details:%s\n", details.c_str());
    EV_LOG_ERROR("Verification Failed PKCS7_verify() - Error Details:%s ", details.c_str());
  } while (false);

  store.reset();
  param.reset();
  output.reset();
  EV_LOG_LEAVE();
  return result;
}
