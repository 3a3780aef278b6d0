// What the tool says about a signature beyond the library's status: who
// signed a package, why a signature does not verify, and whether a signer
// certificate may sign packages at all. Why a signature does not verify,
// and whether a CRL revokes a signer, are asked of OpenSSL's verifier with
// the objects the extractor's check makes, by the library's own steps
// (verify/verify_common.h, create_store, EVGetTimefrmASN1Format), so that
// the cause named is the one the extractor met. Main thread: the library's
// lines of those steps are hidden by pointing standard output elsewhere.
#ifndef TOOLS_CLI_SIGNATURE_CHECK_H_
#define TOOLS_CLI_SIGNATURE_CHECK_H_

#include <openssl/x509.h>

#include <string>
#include <vector>

namespace cli {

struct SignerDescription {
  bool found = false;  // Version.der parsed and carries at least one certificate
  int carried = 0;     // certificates carried in Version.der
  std::string subject;
  std::string issuer;
  std::string notBefore;  // "2024-05-01 12:00:00 UTC"
  std::string notAfter;
};

// The first certificate that the signed manifest carries.
SignerDescription DescribeSigner(const std::vector<unsigned char>& der);

// One sentence on why `der` does not verify against the certificates in
// `trustFile`: not signed data, more than one certificate carried, an
// untrusted anchor, a key usage or extended key usage that does not allow
// signing, a certificate of the chain not valid at the time of the check, a
// signer revoked by a CRL in `trustFile` (with the time of the revocation).
// Empty when none of these applies.
std::string ExplainSignatureFailure(const std::vector<unsigned char>& der,
                                    const std::string& trustFile);

// "revoked on <time> by a CRL in <trustFile>" when the extractor would
// refuse `signer` as revoked; otherwise empty.
std::string SignerRevocation(X509* signer, const std::string& trustFile);

// The content that `der` signs, unverified; throws std::runtime_error when
// `der` is not PKCS#7 signed data with its content attached.
std::string SignedContent(const std::vector<unsigned char>& der);

// Why `signer` cannot sign packages that the extractor accepts now (key
// usage, extended key usage, validity), or empty when it can.
std::string SignerRefusal(X509* signer);

}  // namespace cli

#endif  // TOOLS_CLI_SIGNATURE_CHECK_H_
