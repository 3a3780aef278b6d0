// A small public-key infrastructure for tests, the package tool and demos.
//
// Makes EC P-256 (or RSA) keys, a self-signed root CA, intermediate CAs and
// signer (end-entity) certificates with chosen validity periods, revocation
// lists, signs content into DER-encoded PKCS#7 signed data, and moves
// certificates and keys in and out of PEM files. Certificates carry the extensions that the S/MIME
// signing purpose checks: CAs have basicConstraints CA:TRUE and keyCertSign, signers have
// digitalSignature and the emailProtection extended key usage.
//
// Every OpenSSL object is held by an owner of support/openssl_owners.h, which
// frees it. Failures throw pki::Error with OpenSSL's error text. Key material
// exists only in memory and in the files a caller asks for; nothing here is
// meant to be committed.
// Functions may run on any thread; objects are not shared between threads.
#ifndef AUTHORING_PKI_PKI_H_
#define AUTHORING_PKI_PKI_H_

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/openssl_owners.h"

namespace pki {

class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& what) : std::runtime_error(what) {}
};

using Key = ev::KeyPtr;
using Cert = ev::CertPtr;

// A certificate with its private key.
struct Identity {
  Key key;
  Cert cert;
};

// Seconds since 1970-01-01 00:00:00 UTC. Always 64 bits: where time_t has
// only 32 (32-bit ARM), it cannot hold the years after 2038 or before 1902
// that test certificates use.
using Seconds = int64_t;

// The seconds of a UTC calendar time (month 1-12).
Seconds UtcTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

// Validity period of a certificate, both ends in UTC seconds. Years 1950 to
// 2049 are encoded as UTCTime, others as GeneralizedTime.
struct Validity {
  Seconds notBefore;
  Seconds notAfter;
};

enum class KeyKind { kEcP256, kRsa2048 };

// A fresh key pair.
Key GenerateKey(KeyKind kind = KeyKind::kEcP256);

// Self-signed CA certificate with a fresh key.
Identity MakeRootCa(const std::string& commonName, const Validity& validity);
// CA certificate with a fresh key, issued and signed by `issuer`.
Identity MakeIntermediateCa(const std::string& commonName, const Validity& validity,
                            const Identity& issuer);
// Signing (end-entity) certificate with a fresh key, issued by `issuer`.
Identity MakeSigner(const std::string& commonName, const Validity& validity, const Identity& issuer,
                    KeyKind kind = KeyKind::kEcP256);

// Appends to the PEM file at `path` a CRL of `issuer`, issued at `issued`,
// that lists each certificate of `revoked` with its revocation time.
void AppendCrlPem(const std::string& path, const Identity& issuer,
                  const std::vector<std::pair<X509*, Seconds>>& revoked, Seconds issued);

// What a signature signs besides the content. Without signed attributes
// there is no signing time, so an RSA signature of the same content is the
// same bytes each time (an ECDSA one is not: it draws a random number).
enum class SignedAttributes { kWithSigningTime, kNone };

// PKCS#7 signed data in DER over `content` (kept byte for byte: binary mode,
// content attached, SHA-256). The first form carries only the signer's
// certificate; the second carries exactly `carried`, in that order (empty
// for none; the signer's own certificate only if listed).
std::vector<unsigned char> SignPkcs7Der(const std::string& content, const Identity& signer);
std::vector<unsigned char> SignPkcs7Der(
    const std::string& content, const Identity& signer, const std::vector<X509*>& carried,
    SignedAttributes attributes = SignedAttributes::kWithSigningTime);

// PEM files. A certificate file may hold several certificates; keys are
// written as PKCS#8, unencrypted unless a pass phrase is given (AES-256).
void WriteCertificatesPem(const std::string& path, const std::vector<X509*>& certs);
void WriteKeyPem(const std::string& path, EVP_PKEY* key, const std::string& passPhrase = "");
std::vector<Cert> ReadCertificatesPem(const std::string& path);
Key ReadKeyPem(const std::string& path);
// The first certificate of `certPath` with the key of `keyPath`; throws when
// the key does not belong to the certificate.
Identity LoadIdentity(const std::string& certPath, const std::string& keyPath);

}  // namespace pki

#endif  // AUTHORING_PKI_PKI_H_
