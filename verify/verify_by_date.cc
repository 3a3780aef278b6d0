#include "verify/verify_by_date.h"

#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
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

// Version.der -> Version.inf. std::string::erase throws std::out_of_range
// for a path shorter than three characters, before anything is touched.
std::string ManifestPathFor(const char* derFilePath) {
  std::string path(derFilePath);
  path.erase(path.size() - 3, 3);
  return path + "inf";
}

}  // namespace

unsigned int openSSL_VerifyBasedOnDate(const char* derFilePath, const char* certFilePath,
                                       const unsigned char* derBuffer, int derLength) {
  EV_LOG_ENTER();
  const std::string manifestPath = ManifestPathFor(derFilePath);

  // A manifest of an earlier run must not survive a failed verification.
  if (platform::RemoveFile(manifestPath.c_str()) != 0) {
    const int error = errno;
    printf("Remove Failed -%s / Err: %d", manifestPath.c_str(), error);
    EV_LOG_ERROR("Remove Failed -%s / Err: %d ", manifestPath.c_str(), error);
  }
  verify_internal::LoadOpenSslTables();

  unsigned int result = SIGN_ERR01;
  Pkcs7Ptr p7;
  StorePtr store;
  ParamPtr param;
  BioPtr output;
  do {
    if (derBuffer == nullptr) {
      printf("ERR: File open failed\n");
      EV_LOG_ERROR("ERR: File open failed");
      break;
    }
    const unsigned char* cursor = derBuffer;
    p7.reset(d2i_PKCS7(nullptr, &cursor, derLength));
    if (p7 == nullptr) {
      printf("ERR: Extracing PKCS7 failed\n");
      EV_LOG_ERROR("ERR: Extracing PKCS7 failed");
      break;
    }
    store.reset(create_store(nullptr, certFilePath, nullptr));
    if (store == nullptr) {
      printf("ERR: Failed to create store!");
      EV_LOG_ERROR("ERR: Failed to create store!");
      break;
    }
    // The texts of the two failures below are swapped with respect to what
    // failed; callers and log readers know them that way.
    unsigned int verificationTime = 0;
    if (!GetTimeFromFile(verificationTime)) {
      printf("ERR: failed to create verify param. exiting\n");
      EV_LOG_ERROR("ERR: failed to create verify param. exiting");
      break;
    }
    param.reset(X509_VERIFY_PARAM_new());
    if (param == nullptr) {
      printf("Error. Failed to GetTime!\n");
      EV_LOG_ERROR("Error. Failed to GetTime!");
      break;
    }
    const ParamSetup setup = ApplySmimeSignParams(store.get(), param.get(), verificationTime);
    if (setup == ParamSetup::kUnknownPurpose) {
      printf("unrecognised purpose\n");
      EV_LOG_INFO("unrecognised purpose");
      break;
    }
    if (setup == ParamSetup::kNotApplied) {
      printf("failed to add X509_VERIFY_PARAM to X509_STORE\n");
      EV_LOG_ERROR("failed to add X509_VERIFY_PARAM to X509_STORE");
      break;
    }
    // Without an output the signature is still checked; only the content
    // is not written.
    output.reset(verify_internal::NewOutputFile(manifestPath));
    if (output == nullptr) {
      printf("ERR: Failed to create output file!\n");
      EV_LOG_ERROR("ERR: Failed to create output file!");
    }
    // Only the certificate file builds the chain: certificates carried in
    // the structure are not taken as intermediates, and its CRLs are ignored.
    if (PKCS7_verify(p7.get(), nullptr, store.get(), nullptr, output.get(),
                     PKCS7_NOCHAIN | PKCS7_NOCRL) == 1) {
      result = KALU_NO_ERR;
      break;
    }
    const unsigned long error = ERR_get_error();
    std::cout << "Verification Failure. Error= " << error << "\n";
    std::cout << "Error details=" << verify_internal::ErrorText(error) << "\n";
    printf("Verification failed on given DerFile:%s, CertFile:%s \n", derFilePath, certFilePath);
    EV_LOG_INFO("Verification failed on given DerFile:%s, CertFile:%s", derFilePath, certFilePath);
  } while (false);

  store.reset();
  param.reset();
  output.reset();
  EV_LOG_LEAVE();
  return result;
}
