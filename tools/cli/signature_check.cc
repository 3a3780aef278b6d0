#include "tools/cli/signature_check.h"

#include <openssl/pkcs7.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <stdexcept>
#include <thread>

#include "extract_verify/verify.h"
#include "support/openssl_owners.h"
#include "tools/cli/stdout_redirect.h"
#include "verify/library_context.h"
#include "verify/verify_common.h"

namespace cli {

namespace {

// Parsed as the checks parse it, in the library's context.
ev::Pkcs7Ptr ParseSignedData(const std::vector<unsigned char>& der) {
  ev::Pkcs7Ptr p7 = ev::ParseInLibraryContext(der.data(), static_cast<long>(der.size()));
  if (p7 && !PKCS7_type_is_signed(p7.get())) p7.reset();
  return p7;
}

STACK_OF(X509) * Carried(PKCS7* p7) { return p7->d.sign != nullptr ? p7->d.sign->cert : nullptr; }

std::string NameText(const X509_NAME* name) {
  char text[256];
  X509_NAME_oneline(name, text, sizeof text);
  return text;
}

std::string TimeText(const std::tm& fields) {
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &fields);
  return text;
}

std::string TimeText(const ASN1_TIME* time) {
  std::tm fields{};
  if (ASN1_TIME_to_tm(time, &fields) != 1) return "?";
  return TimeText(fields);
}

std::string TimeText(time_t time) {
  std::tm fields{};
  gmtime_r(&time, &fields);
  return TimeText(fields);
}

std::string Subject(X509* cert) { return NameText(X509_get_subject_name(cert)); }

// The store the checks build from `trustFile`. create_store clears the
// OpenSSL error queue of its thread, which holds what a failed check left
// for --verbose to show; on a thread of its own it clears that thread's.
ev::StorePtr StoreOfTheChecks(const std::string& trustFile) {
  ev::StorePtr store;
  std::thread([&] { store.reset(create_store(nullptr, trustFile.c_str(), nullptr)); }).join();
  return store;
}

// The store of `trustFile` with the checks' verification parameters
// installed, for the time at which the unsigning check verifies `signer`
// (its start of validity, read by EVGetTimefrmASN1Format), which is stored
// in `checkTime`; null when a step fails. Both library steps print what
// they print for the checks; the explanation is not the place for those
// lines.
ev::StorePtr StoreSetUpAsTheChecks(X509* signer, const std::string& trustFile, time_t& checkTime) {
  ev::StorePtr store;
  unsigned int seconds = 0;
  {
    StdoutRedirect silence = StdoutRedirect::ToFile("/dev/null");
    store = StoreOfTheChecks(trustFile);
    EVGetTimefrmASN1Format(X509_getm_notBefore(signer), seconds);
  }
  checkTime = static_cast<time_t>(seconds);
  if (store == nullptr ||
      ev::ApplySmimeSignParams(store.get(), seconds) != ev::ParamSetup::kApplied) {
    return nullptr;
  }
  return store;
}

// The extractor's chain check of `signer`, made with the objects the
// library's steps make, so that what it finds is what the extractor found;
// the context then says why it failed. The tool's copy of the library's
// context is an instance of its own, made as the library makes its own.
struct ChainCheck {
  ev::StorePtr store;
  ev::StoreContextPtr context{X509_STORE_CTX_new_ex(ev::LibraryContext(), nullptr)};
  time_t checkTime = 0;
  bool ran = false;  // the steps succeeded and the check was made
  bool verified = false;

  ChainCheck(X509* signer, STACK_OF(X509) * carried, const std::string& trustFile) {
    store = StoreSetUpAsTheChecks(signer, trustFile, checkTime);
    // As PKCS7_verify checks its signer's chain: the certificates carried
    // beside it may complete the chain, for the S/MIME signing defaults.
    if (!store || !context ||
        X509_STORE_CTX_init(context.get(), store.get(), signer, carried) != 1 ||
        X509_STORE_CTX_set_default(context.get(), "smime_sign") != 1) {
      return;
    }
    ran = true;
    verified = X509_verify_cert(context.get()) == 1;
  }
  bool revoked() const {
    return ran && X509_STORE_CTX_get_error(context.get()) == X509_V_ERR_CERT_REVOKED;
  }
};

// When the store's CRLs list `cert`, the time of its revocation.
std::string RevocationTime(X509_STORE* store, X509* cert) {
  STACK_OF(X509_OBJECT)* objects = X509_STORE_get0_objects(store);
  for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
    X509_CRL* crl = X509_OBJECT_get0_X509_CRL(sk_X509_OBJECT_value(objects, i));
    X509_REVOKED* entry = nullptr;
    if (crl != nullptr && X509_CRL_get0_by_cert(crl, &entry, cert) == 1) {
      return TimeText(X509_REVOKED_get0_revocationDate(entry));
    }
  }
  return "?";
}

std::string Revocation(const ChainCheck& check, X509* signer, const std::string& trustFile) {
  return "revoked on " + RevocationTime(check.store.get(), signer) + " by a CRL in " + trustFile;
}

std::string ChainFailure(const ChainCheck& check, X509* signer, const std::string& trustFile) {
  X509* failing = X509_STORE_CTX_get_current_cert(check.context.get());
  X509* cert = failing != nullptr ? failing : signer;
  const int error = X509_STORE_CTX_get_error(check.context.get());
  switch (error) {
    case X509_V_ERR_CERT_REVOKED:
      return "the signer " + Subject(signer) + " was " + Revocation(check, signer, trustFile);
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_UNTRUSTED:
      return "the signer " + Subject(cert) + " does not lead to a certificate in " + trustFile +
             " (untrusted anchor)";
    case X509_V_ERR_INVALID_PURPOSE:
      return Subject(cert) +
             " may not sign packages: its key usage or extended key usage "
             "does not allow S/MIME signing (emailProtection)";
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return Subject(cert) + " is not valid at " + TimeText(check.checkTime) +
             ", the time of the check (the "
             "signer's start of validity read in this time zone): it is valid from " +
             TimeText(X509_get0_notBefore(cert)) + " to " + TimeText(X509_get0_notAfter(cert));
    default:
      return "the signer's certificate chain does not verify: " +
             std::string(X509_verify_cert_error_string(error));
  }
}

}  // namespace

SignerDescription DescribeSigner(const std::vector<unsigned char>& der) {
  SignerDescription description;
  ev::Pkcs7Ptr p7 = ParseSignedData(der);
  STACK_OF(X509)* certs = p7 ? Carried(p7.get()) : nullptr;
  description.carried = certs != nullptr ? sk_X509_num(certs) : 0;
  if (description.carried == 0) return description;
  X509* signer = sk_X509_value(certs, 0);
  description.found = true;
  description.subject = Subject(signer);
  description.issuer = NameText(X509_get_issuer_name(signer));
  description.notBefore = TimeText(X509_get0_notBefore(signer));
  description.notAfter = TimeText(X509_get0_notAfter(signer));
  return description;
}

std::string ExplainSignatureFailure(const std::vector<unsigned char>& der,
                                    const std::string& trustFile) {
  ev::Pkcs7Ptr p7 = ParseSignedData(der);
  if (!p7) return "Version.der is not DER-encoded PKCS#7 signed data";
  STACK_OF(X509)* certs = Carried(p7.get());
  const int carried = certs != nullptr ? sk_X509_num(certs) : 0;
  if (carried != 1) {
    return "Version.der carries " + std::to_string(carried) +
           " certificates; the extractor "
           "accepts exactly one, the signer's";
  }
  X509* signer = sk_X509_value(certs, 0);
  const ChainCheck check(signer, certs, trustFile);
  if (!check.ran || check.verified) return "";
  return ChainFailure(check, signer, trustFile);
}

std::string SignerRevocation(X509* signer, const std::string& trustFile) {
  const ChainCheck check(signer, nullptr, trustFile);
  return check.revoked() ? Revocation(check, signer, trustFile) : "";
}

std::string SignedContent(const std::vector<unsigned char>& der) {
  ev::Pkcs7Ptr p7 = ParseSignedData(der);
  PKCS7* inner = p7 ? p7->d.sign->contents : nullptr;
  if (inner == nullptr || !PKCS7_type_is_data(inner) || inner->d.data == nullptr) {
    throw std::runtime_error("Version.der is not PKCS#7 signed data with its content attached");
  }
  const ASN1_OCTET_STRING* content = inner->d.data;
  return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(content)),
                     static_cast<size_t>(ASN1_STRING_length(content)));
}

std::string SignerRefusal(X509* signer) {
  X509_check_purpose(signer, -1, 0);  // caches the extensions read below
  if ((X509_get_key_usage(signer) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) == 0) {
    return "its key usage allows neither digitalSignature nor nonRepudiation";
  }
  if ((X509_get_extended_key_usage(signer) & XKU_SMIME) == 0) {
    return "its extended key usage lacks emailProtection (S/MIME signing), which the "
           "extractor requires";
  }
  if (X509_check_purpose(signer, X509_PURPOSE_SMIME_SIGN, 0) != 1) {
    return "it is not allowed to sign for S/MIME";
  }
  if (X509_cmp_current_time(X509_get0_notBefore(signer)) > 0) {
    return "it is not valid before " + TimeText(X509_get0_notBefore(signer));
  }
  if (X509_cmp_current_time(X509_get0_notAfter(signer)) < 0) {
    return "it expired on " + TimeText(X509_get0_notAfter(signer));
  }
  return "";
}

}  // namespace cli
