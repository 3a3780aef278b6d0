#include <openssl/pkcs7.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "extract_verify/verify.h"
#include "platform/log.h"
#include "verify/pkcs7_check.h"
#include "verify/verify_common.h"

using ev::kLogError;
using ev::kLogInfo;

namespace {

constexpr char kName[] = "openSSL_VerifyBasedOnDate";

// 2015-04-07 17:15:06 UTC.
constexpr unsigned int kBuiltInVerificationTime = 1428426906u;

// Version.der -> Version.inf. std::string::erase throws std::out_of_range
// for a path shorter than three characters, before anything is touched.
std::string ManifestPathFor(const char* derFilePath) {
  std::string path(derFilePath);
  path.erase(path.size() - 3, 3);
  return path + "inf";
}

// The texts of this failure and of the next step's (no parameter block) are
// swapped with respect to what failed; callers and log readers know them
// that way.
bool BuiltInTime(PKCS7*, unsigned int& verificationTime) {
  if (GetTimeFromFile(verificationTime)) return true;
  printf("ERR: failed to create verify param. exiting\n");
  EV_LOG_AS(kName, kLogError, "ERR: failed to create verify param. exiting");
  return false;
}

void ReportWithPaths(const ev::Pkcs7CheckCall& call, unsigned long error) {
  std::cout << "Verification Failure. Error= " << error << "\n";
  std::cout << "Error details=" << ev::ErrorText(error) << "\n";
  printf("Verification failed on given DerFile:%s, CertFile:%s \n", call.pathArgument,
         call.certFilePath);
  EV_LOG_AS(kName, kLogInfo, "Verification failed on given DerFile:%s, CertFile:%s",
            call.pathArgument, call.certFilePath);
}

// Only the certificate file builds the chain: certificates carried in the
// structure are not taken as intermediates, and its CRLs are ignored.
const ev::Pkcs7Check kDatedCheck = {
    kName,
    {"Remove Failed -%s / Err: %d", "Remove Failed -%s / Err: %d ", kLogError},
    {"ERR: File open failed\n", "ERR: File open failed", kLogError},
    {"ERR: Extracing PKCS7 failed\n", "ERR: Extracing PKCS7 failed", kLogError},
    {"ERR: Failed to create store!", "ERR: Failed to create store!", kLogError},
    {"Error. Failed to GetTime!\n", "Error. Failed to GetTime!", kLogError},
    {"unrecognised purpose\n", "unrecognised purpose", kLogInfo},
    {"failed to add X509_VERIFY_PARAM to X509_STORE\n",
     "failed to add X509_VERIFY_PARAM to X509_STORE", kLogError},
    {"ERR: Failed to create output file!\n", "ERR: Failed to create output file!", kLogError},
    PKCS7_NOCHAIN | PKCS7_NOCRL,
    BuiltInTime,
    ReportWithPaths,
};

}  // namespace

bool GetTimeFromFile(unsigned int& verificationTime) {
  verificationTime = kBuiltInVerificationTime;
  return true;
}

unsigned int openSSL_VerifyBasedOnDate(const char* derFilePath, const char* certFilePath,
                                       const unsigned char* derBuffer, int derLength) {
  EV_LOG_ENTER();
  const ev::Pkcs7CheckCall call = {derFilePath, ManifestPathFor(derFilePath), certFilePath,
                                   derBuffer, derLength};
  const unsigned int result = ev::RunPkcs7Check(kDatedCheck, call);
  EV_LOG_LEAVE();
  return result;
}
