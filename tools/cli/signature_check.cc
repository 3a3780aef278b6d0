#include "tools/cli/signature_check.h"

#include <openssl/pkcs7.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <stdexcept>

#include "support/openssl_owners.h"
#include "verify/revocation.h"

namespace cli {

namespace {

ev::Pkcs7Ptr ParseSignedData(const std::vector<unsigned char>& der) {
  const unsigned char* cursor = der.data();
  ev::Pkcs7Ptr p7(d2i_PKCS7(nullptr, &cursor, static_cast<long>(der.size())));
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

// The instant at which the extractor checks the chain: the signer's start
// of validity, its UTC fields read in the process's time zone.
time_t CheckTime(X509* signer) {
  std::tm start{};
  ASN1_TIME_to_tm(X509_get0_notBefore(signer), &start);
  start.tm_isdst = 0;
  return mktime(&start);
}

std::string Subject(X509* cert) { return NameText(X509_get_subject_name(cert)); }

// The extractor's chain check of `signer`, repeated with the certificates
// and revocation lists of a trust file; the context says why it failed.
struct ChainCheck {
  ev::StorePtr store{X509_STORE_new()};
  ev::StoreContextPtr context{X509_STORE_CTX_new()};
  time_t checkTime = 0;
  bool ran = false;  // the trust file loaded and the check was made
  bool verified = false;

  ChainCheck(X509* signer, const std::string& trustFile) {
    if (!store || !context || X509_STORE_load_file(store.get(), trustFile.c_str()) != 1) return;
    const unsigned long revocation = verify_internal::ConsultRevocationLists(store.get());
    if (X509_STORE_CTX_init(context.get(), store.get(), signer, nullptr) != 1) return;
    checkTime = CheckTime(signer);
    X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(context.get());
    X509_VERIFY_PARAM_set_time(param, checkTime);
    X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_PARTIAL_CHAIN | revocation);
    X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SMIME_SIGN);
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
  const ChainCheck check(signer, trustFile);
  if (!check.ran || check.verified) return "";
  return ChainFailure(check, signer, trustFile);
}

std::string SignerRevocation(X509* signer, const std::string& trustFile) {
  const ChainCheck check(signer, trustFile);
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
