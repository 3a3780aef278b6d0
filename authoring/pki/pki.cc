#include "authoring/pki/pki.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace pki {

namespace {

using Bio = ev::BioPtr;
using Pkcs7 = ev::Pkcs7Ptr;

// Throws with `what` and the text of every error OpenSSL has queued.
[[noreturn]] void Fail(const std::string& what) {
  std::string text = what;
  char line[256];
  for (unsigned long code = ERR_get_error(); code != 0; code = ERR_get_error()) {
    ERR_error_string_n(code, line, sizeof(line));
    text += "\n  ";
    text += line;
  }
  throw Error(text);
}

void Check(bool ok, const std::string& what) {
  if (!ok) Fail(what);
}

Bio OpenFile(const std::string& path, const char* mode) {
  Bio bio(BIO_new_file(path.c_str(), mode));
  Check(bio != nullptr, "cannot open " + path);
  return bio;
}

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

void AddExtension(X509* cert, X509V3_CTX* ctx, int nid, const char* value) {
  X509_EXTENSION* ext = X509V3_EXT_nconf_nid(nullptr, ctx, nid, value);
  Check(ext != nullptr, std::string("cannot make extension ") + OBJ_nid2sn(nid));
  const int added = X509_add_ext(cert, ext, -1);
  X509_EXTENSION_free(ext);
  Check(added == 1, std::string("cannot add extension ") + OBJ_nid2sn(nid));
}

// A positive 63-bit random serial, so that certificates of one issuer differ.
void SetRandomSerial(X509* cert) {
  uint64_t serial = 0;
  Check(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof(serial)) == 1,
        "cannot draw a serial number");
  serial = (serial >> 1) | 1;
  Check(ASN1_INTEGER_set_uint64(X509_get_serialNumber(cert), serial) == 1,
        "cannot set the serial number");
}

// Sets `time` as days plus seconds from the epoch (the remainder may be
// negative): OpenSSL adds them on its own calendar, so the instant never has
// to fit a time_t.
void SetTime(ASN1_TIME* time, Seconds seconds, const char* what) {
  const int days = static_cast<int>(seconds / 86400);
  const long rest = static_cast<long>(seconds % 86400);
  Check(ASN1_TIME_adj(time, 0, days, rest) != nullptr, std::string("cannot set ") + what);
}

void SetValidity(X509* cert, const Validity& validity) {
  SetTime(X509_getm_notBefore(cert), validity.notBefore, "notBefore");
  SetTime(X509_getm_notAfter(cert), validity.notAfter, "notAfter");
}

void SetSubject(X509* cert, const std::string& commonName) {
  X509_NAME* name = X509_get_subject_name(cert);
  Check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                   -1, 0) == 1,
        "cannot set the subject name");
}

// Builds and signs a certificate for a fresh key. A null `issuer` makes it
// self-signed.
Identity Issue(const std::string& commonName, const Validity& validity, bool isCa,
               const Identity* issuer, KeyKind kind = KeyKind::kEcP256) {
  Identity subject{GenerateKey(kind), Cert(X509_new())};
  X509* cert = subject.cert.get();
  Check(cert != nullptr, "cannot allocate a certificate");
  Check(X509_set_version(cert, X509_VERSION_3) == 1, "cannot set the version");
  SetRandomSerial(cert);
  SetValidity(cert, validity);
  SetSubject(cert, commonName);
  X509* issuerCert = issuer != nullptr ? issuer->cert.get() : cert;
  EVP_PKEY* issuerKey = issuer != nullptr ? issuer->key.get() : subject.key.get();
  Check(X509_set_issuer_name(cert, X509_get_subject_name(issuerCert)) == 1,
        "cannot set the issuer name");
  Check(X509_set_pubkey(cert, subject.key.get()) == 1, "cannot set the public key");

  X509V3_CTX ctx;
  X509V3_set_ctx(&ctx, issuerCert, cert, nullptr, nullptr, 0);
  if (isCa) {
    AddExtension(cert, &ctx, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(cert, &ctx, NID_key_usage, "critical,keyCertSign,cRLSign");
  } else {
    AddExtension(cert, &ctx, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(cert, &ctx, NID_key_usage, "critical,digitalSignature,nonRepudiation");
    AddExtension(cert, &ctx, NID_ext_key_usage, "emailProtection");
  }
  AddExtension(cert, &ctx, NID_subject_key_identifier, "hash");
  AddExtension(cert, &ctx, NID_authority_key_identifier, "keyid:always");
  Check(X509_sign(cert, issuerKey, EVP_sha256()) > 0, "cannot sign the certificate");
  return subject;
}

}  // namespace

Seconds UtcTime(int year, int month, int day, int hour, int minute, int second) {
  return DaysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

Key GenerateKey(KeyKind kind) {
  Key key(kind == KeyKind::kRsa2048 ? EVP_RSA_gen(2048) : EVP_EC_gen("P-256"));
  Check(key != nullptr, "cannot generate a key");
  return key;
}

Identity MakeRootCa(const std::string& commonName, const Validity& validity) {
  return Issue(commonName, validity, true, nullptr);
}

Identity MakeIntermediateCa(const std::string& commonName, const Validity& validity,
                            const Identity& issuer) {
  return Issue(commonName, validity, true, &issuer);
}

Identity MakeSigner(const std::string& commonName, const Validity& validity, const Identity& issuer,
                    KeyKind kind) {
  return Issue(commonName, validity, false, &issuer, kind);
}

void AppendCrlPem(const std::string& path, const Identity& issuer,
                  const std::vector<std::pair<X509*, Seconds>>& revoked, Seconds issued) {
  ev::CrlPtr crl(X509_CRL_new());
  Check(crl != nullptr && X509_CRL_set_version(crl.get(), 1) == 1 &&
            X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(issuer.cert.get())) == 1,
        "cannot start a CRL");
  ev::Asn1TimePtr time(ASN1_TIME_new());
  SetTime(time.get(), issued, "the CRL's time");
  X509_CRL_set1_lastUpdate(crl.get(), time.get());
  SetTime(time.get(), issued + 30 * 86400, "the CRL's next update");
  X509_CRL_set1_nextUpdate(crl.get(), time.get());
  for (const auto& [cert, when] : revoked) {
    X509_REVOKED* entry = X509_REVOKED_new();
    SetTime(time.get(), when, "a revocation time");
    Check(X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(cert)) == 1 &&
              X509_REVOKED_set_revocationDate(entry, time.get()) == 1 &&
              X509_CRL_add0_revoked(crl.get(), entry) == 1,
          "cannot list a revoked certificate");
  }
  Check(
      X509_CRL_sort(crl.get()) == 1 && X509_CRL_sign(crl.get(), issuer.key.get(), EVP_sha256()) > 0,
      "cannot sign the CRL");
  Bio file = OpenFile(path, "a");
  Check(PEM_write_bio_X509_CRL(file.get(), crl.get()) == 1, "cannot write the CRL to " + path);
}

std::vector<unsigned char> SignPkcs7Der(const std::string& content, const Identity& signer) {
  return SignPkcs7Der(content, signer, {signer.cert.get()});
}

std::vector<unsigned char> SignPkcs7Der(const std::string& content, const Identity& signer,
                                        const std::vector<X509*>& carried,
                                        SignedAttributes attributes) {
  // Partial signing leaves the certificate list to us; binary mode keeps line
  // ends as they are instead of turning them into CR LF.
  int flags = PKCS7_BINARY | PKCS7_PARTIAL | PKCS7_NOCERTS;
  if (attributes == SignedAttributes::kNone) flags |= PKCS7_NOATTR;
  Pkcs7 p7(PKCS7_sign(signer.cert.get(), signer.key.get(), nullptr, nullptr, flags));
  Check(p7 != nullptr, "cannot start the PKCS#7 signature");
  for (X509* cert : carried) {
    Check(PKCS7_add_certificate(p7.get(), cert) == 1, "cannot add a certificate");
  }
  Bio data(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  Check(data != nullptr, "cannot wrap the content");
  Check(PKCS7_final(p7.get(), data.get(), PKCS7_BINARY) == 1, "cannot sign the content");

  const int length = i2d_PKCS7(p7.get(), nullptr);
  Check(length > 0, "cannot encode the PKCS#7 structure");
  std::vector<unsigned char> der(static_cast<size_t>(length));
  unsigned char* cursor = der.data();
  Check(i2d_PKCS7(p7.get(), &cursor) == length, "cannot encode the PKCS#7 structure");
  return der;
}

void WriteCertificatesPem(const std::string& path, const std::vector<X509*>& certs) {
  Bio file = OpenFile(path, "w");
  for (X509* cert : certs) {
    Check(PEM_write_bio_X509(file.get(), cert) == 1, "cannot write a certificate to " + path);
  }
}

void WriteKeyPem(const std::string& path, EVP_PKEY* key, const std::string& passPhrase) {
  Bio file = OpenFile(path, "w");
  const EVP_CIPHER* cipher = passPhrase.empty() ? nullptr : EVP_aes_256_cbc();
  auto* phrase = reinterpret_cast<const unsigned char*>(passPhrase.data());
  Check(PEM_write_bio_PrivateKey(file.get(), key, cipher, phrase,
                                 static_cast<int>(passPhrase.size()), nullptr, nullptr) == 1,
        "cannot write the key to " + path);
}

std::vector<Cert> ReadCertificatesPem(const std::string& path) {
  Bio file = OpenFile(path, "r");
  std::vector<Cert> certs;
  while (X509* cert = PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr)) {
    certs.emplace_back(cert);
  }
  // Running out of PEM blocks ends the loop with a "no start line" error.
  const unsigned long last = ERR_peek_last_error();
  if (ERR_GET_REASON(last) == PEM_R_NO_START_LINE && !certs.empty()) ERR_clear_error();
  Check(ERR_peek_error() == 0 && !certs.empty(), "no certificate in " + path);
  return certs;
}

Key ReadKeyPem(const std::string& path) {
  Bio file = OpenFile(path, "r");
  Key key(PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  Check(key != nullptr, "no private key in " + path);
  return key;
}

Identity LoadIdentity(const std::string& certPath, const std::string& keyPath) {
  std::vector<Cert> certs = ReadCertificatesPem(certPath);
  Identity identity{ReadKeyPem(keyPath), std::move(certs.front())};
  Check(X509_check_private_key(identity.cert.get(), identity.key.get()) == 1,
        "the key of " + keyPath + " does not belong to the certificate of " + certPath);
  return identity;
}

}  // namespace pki
