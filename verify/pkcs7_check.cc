#include "verify/pkcs7_check.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <cstdio>

#include "extract_verify/status.h"
#include "extract_verify/verify.h"
#include "platform/file_io.h"
#include "platform/log.h"
#include "support/openssl_owners.h"
#include "verify/revocation.h"
#include "verify/verify_common.h"

namespace ev {
namespace {

// Follows either check's own failure report: OpenSSL's error text does not
// tell a revoked signer from an untrusted one.
const Notice kSignerRevoked = {"Signer certificate is revoked by a CRL in %s\n",
                               "Signer certificate is revoked by a CRL in %s", kLogError};

// The objects one check makes, released together when the check ends.
struct CheckObjects {
  ev::Pkcs7Ptr p7;
  ev::StorePtr store;
  ev::BioPtr output;
};

void Tell(const char* name, const Notice& notice) {
  fputs(notice.printed, stdout);
  EV_LOG_AS(name, notice.level, "%s", notice.logged);
}

template <typename... Args>
void Tell(const char* name, const Notice& notice, Args... args) {
  printf(notice.printed, args...);
  EV_LOG_AS(name, notice.level, notice.logged, args...);
}

// A file BIO writing `path` (created, truncated, 0666 less the umask), or
// null when it cannot be opened; a symbolic link at `path` is not followed.
BIO* NewOutputFile(const std::string& path) {
  int fd = platform::OpenForWriting(path.c_str());
  if (fd < 0) return nullptr;
  BIO* bio = BIO_new_fd(fd, BIO_CLOSE);
  if (bio == nullptr) platform::Close(fd);
  return bio;
}

// A manifest of an earlier run must not survive a failed verification.
void RemoveOldOutput(const Pkcs7Check& check, const std::string& outputPath) {
  if (platform::RemoveFile(outputPath.c_str()) != 0) {
    const int error = errno;
    Tell(check.name, check.removeFailed, outputPath.c_str(), error);
  }
}

bool ParseAndBuildStore(const Pkcs7Check& check, const Pkcs7CheckCall& call,
                        CheckObjects& objects) {
  if (call.derBuffer == nullptr) {
    Tell(check.name, check.noBuffer);
    return false;
  }
  objects.p7 = ParseInLibraryContext(call.derBuffer, call.derLength);
  if (objects.p7 == nullptr) {
    Tell(check.name, check.notParsed);
    return false;
  }
  objects.store.reset(create_store(nullptr, call.certFilePath, nullptr));
  if (objects.store == nullptr) {
    Tell(check.name, check.noStore);
    return false;
  }
  return true;
}

bool SetUpParameters(const Pkcs7Check& check, CheckObjects& objects) {
  unsigned int verificationTime = 0;
  if (!check.findTime(objects.p7.get(), verificationTime)) return false;
  switch (ApplySmimeSignParams(objects.store.get(), verificationTime)) {
    case ParamSetup::kApplied:
      return true;
    case ParamSetup::kNoParam:
      Tell(check.name, check.noParam);
      return false;
    case ParamSetup::kUnknownPurpose:
      Tell(check.name, check.unknownPurpose);
      return false;
    case ParamSetup::kNotApplied:
      break;
  }
  Tell(check.name, check.paramNotApplied);
  return false;
}

bool Verify(const Pkcs7Check& check, const Pkcs7CheckCall& call, CheckObjects& objects) {
  // Without an output the signature is still checked; only the content is
  // not written.
  objects.output.reset(NewOutputFile(call.outputPath));
  if (objects.output == nullptr) Tell(check.name, check.noOutput, call.outputPath.c_str());
  if (PKCS7_verify(objects.p7.get(), nullptr, objects.store.get(), nullptr, objects.output.get(),
                   check.verifyFlags) == 1) {
    return true;
  }
  check.reportFailure(call, ERR_get_error());
  if (FoundSignerRevoked(objects.store.get())) {
    Tell(check.name, kSignerRevoked, call.certFilePath);
  }
  return false;
}

}  // namespace

unsigned int RunPkcs7Check(const Pkcs7Check& check, const Pkcs7CheckCall& call) {
  RemoveOldOutput(check, call.outputPath);
  LoadOpenSslTables();
  CheckObjects objects;
  const bool verified = ParseAndBuildStore(check, call, objects) &&
                        SetUpParameters(check, objects) && Verify(check, call, objects);
  return verified ? KALU_NO_ERR : SIGN_ERR01;
}

}  // namespace ev
