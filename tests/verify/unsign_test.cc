#include "verify/unsign.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <ctime>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "status/kalu_status.h"
#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"
#include "tests/verify/signing_fixture.h"
#include "verify/verify_by_date.h"

namespace {

using testsupport::FileExists;
using testsupport::LogCapture;
using testsupport::OutputCapture;
using testsupport::ReadFile;
using testsupport::WriteFile;
using verifytest::Chain;
using verifytest::kBuiltInTime;
using verifytest::kManifest;
using Texts = std::vector<std::string>;
using Der = std::vector<unsigned char>;

// The weekday is always Sunday: the time is printed before mktime fills it.
const char kBuiltInTimeText[] = "Time [@ DER] in GMT: Sun Apr  7 17:15:06 2015\n";

struct Pkcs7Free {
  void operator()(PKCS7* p7) const { PKCS7_free(p7); }
};

// Converts `text` as an ASN.1 string of `type`; checks the result code.
unsigned int Convert(int type, const std::string& text) {
  ASN1_STRING* time = ASN1_STRING_type_new(type);
  EXPECT_EQ(1, ASN1_STRING_set(time, text.data(), static_cast<int>(text.size())));
  unsigned int seconds = 7;
  EXPECT_EQ(0, EVGetTimefrmASN1Format(time, seconds));
  ASN1_STRING_free(time);
  return seconds;
}

// What the conversion stores for `utc` in a UTC process: its low 32 bits
// when time_t can hold it, else all ones (mktime fails). 2069 and 1900 fit a
// 64-bit time_t but not the 32-bit one of 32-bit ARM.
unsigned int Stored(pki::Seconds utc) {
  const bool fits = utc >= std::numeric_limits<std::time_t>::min() &&
                    utc <= std::numeric_limits<std::time_t>::max();
  return fits ? static_cast<unsigned int>(utc) : 0xFFFFFFFFu;
}

Der Encode(PKCS7* p7) {
  Der der(static_cast<size_t>(i2d_PKCS7(p7, nullptr)));
  unsigned char* cursor = der.data();
  EXPECT_EQ(static_cast<int>(der.size()), i2d_PKCS7(p7, &cursor));
  return der;
}

class AsnTimeTest : public verifytest::InUtc {};

TEST_F(AsnTimeTest, TimesAreConvertedPrintedAndLogged) {
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(1428426906u, Convert(V_ASN1_UTCTIME, "150407171506Z"));
  EXPECT_EQ(kBuiltInTimeText, out.Finish());
  EXPECT_EQ((Texts{"23:+", std::string("23:") + kBuiltInTimeText, "23:-"}),
            log.Levelled("EVGetTimefrmASN1Format"));

  OutputCapture quiet;
  const std::pair<int, std::string> inputs[] = {
      {V_ASN1_UTCTIME, "700101000000Z"}, {V_ASN1_UTCTIME, "991231235959Z"},
      {V_ASN1_UTCTIME, "000101000000Z"}, {V_ASN1_UTCTIME, "691231235959Z"},
      {V_ASN1_GENERALIZEDTIME, "20150407171506Z"},
      {V_ASN1_GENERALIZEDTIME, "20150407171506.75+0200"},
      {V_ASN1_OCTET_STRING, "0407171506"}};  // other types start at the month of 1900
  const unsigned int expected[] = {0u, 946684799u, 946684800u,
                                   Stored(pki::UtcTime(2069, 12, 31, 23, 59, 59)), 1428426906u,
                                   1428426906u, Stored(pki::UtcTime(1900, 4, 7, 17, 15, 6))};
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(expected[i], Convert(inputs[i].first, inputs[i].second)) << i;

  SetZone("UTC-2");  // the process's zone counts: two hours east, no daylight saving
  EXPECT_EQ(1428426906u - 7200u, Convert(V_ASN1_UTCTIME, "150407171506Z"));
}

// A crafted certificate may carry a time shorter than its fields: missing
// characters read as NULs and nothing is read past the string (AddressSanitizer
// builds catch a read beyond it).
TEST_F(AsnTimeTest, ShortTimeTextIsReadWithoutOverrunningIt) {
  OutputCapture out;
  unsigned int full = Convert(V_ASN1_GENERALIZEDTIME, std::string("2015") + std::string(10, '\0'));
  EXPECT_EQ(full, Convert(V_ASN1_GENERALIZEDTIME, "2015"));
  Convert(V_ASN1_UTCTIME, "");
}

class UnsignTest : public verifytest::SigningTest {
 protected:
  UnsignTest() : manifest(dir.file("Version.inf")) {}

  unsigned int Unsign(const std::string& path, const std::string& trust, const Der& der) {
    const Der buffer = verifytest::InEntryBuffer(der);
    return EV_Unsign_using_date(path.c_str(), trust.c_str(), buffer.data(),
                                static_cast<int>(buffer.size()));
  }
  unsigned int VerifyByDate(const std::string& trust, const Der& der) {
    return openSSL_VerifyBasedOnDate(dir.file("Version.der").c_str(), trust.c_str(), der.data(),
                                     static_cast<int>(der.size()));
  }
  std::string FailedDel(const std::string& path) {
    return "Failed Del: " + path + " / " + std::to_string(ENOENT);
  }
  // The third log line of the check: the first after the entry mark and
  // the failed delete.
  static std::string ThirdLine(const LogCapture& log) {
    return log.Levelled("EV_Unsign_using_date").at(2);
  }

  std::string manifest;
};

TEST_F(UnsignTest, ExpiredSignerVerifiesAtItsOwnStartAndWritesTheContent) {
  Chain chain;
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR,
            Unsign(manifest, TrustChain(chain), pki::SignPkcs7Der(kManifest, chain.signer)));
  EXPECT_EQ(FailedDel(manifest) + kBuiltInTimeText, out.Finish());
  EXPECT_EQ(kManifest, ReadFile(manifest));
  EXPECT_EQ((Texts{"23:+", "31:" + FailedDel(manifest) + " ", "23:-"}),
            log.Levelled("EV_Unsign_using_date"));
}

// This check verifies at the signer's own start and wants exactly one
// carried certificate with a signing usage; the built-in-time check does
// neither.
TEST_F(UnsignTest, DiffersFromTheBuiltInTimeCheckInTimeCarriedCertificatesAndUsage) {
  Chain late(pki::UtcTime(2016, 6, 1, 8, 0, 0));
  const Der lateDer = pki::SignPkcs7Der(kManifest, late.signer);
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, Unsign(manifest, TrustChain(late), lateDer));
  EXPECT_EQ(SIGN_ERR01, VerifyByDate(TrustChain(late), lateDer));

  Chain chain;
  const std::string trust = TrustChain(chain);
  const Der two = pki::SignPkcs7Der(kManifest, chain.signer,
                                    {chain.signer.cert.get(), chain.intermediate.cert.get()});
  EXPECT_EQ(KALU_NO_ERR, VerifyByDate(trust, two));
  out.Finish();
  testsupport::RemoveTree(manifest);  // written by the first check
  for (const Der& der : {two, pki::SignPkcs7Der(kManifest, chain.signer, {})}) {
    LogCapture log;
    OutputCapture refused;
    EXPECT_EQ(SIGN_ERR01, Unsign(manifest, trust, der));
    EXPECT_EQ(FailedDel(manifest) + "More than 1 Cert @ DER, can't proceed\n", refused.Finish());
    EXPECT_EQ("23:More than 1 Cert @ DER, can't proceed", ThirdLine(log));
  }

  // Re-issued for server authentication instead of e-mail protection.
  X509* cert = chain.signer.cert.get();
  X509_EXTENSION_free(X509_delete_ext(cert, X509_get_ext_by_NID(cert, NID_ext_key_usage, -1)));
  X509_EXTENSION* usage = X509V3_EXT_nconf_nid(nullptr, nullptr, NID_ext_key_usage, "serverAuth");
  ASSERT_NE(nullptr, usage);
  EXPECT_EQ(1, X509_add_ext(cert, usage, -1));
  X509_EXTENSION_free(usage);
  EXPECT_LT(0, X509_sign(cert, chain.intermediate.key.get(), EVP_sha256()));
  OutputCapture quiet;
  const Der server = pki::SignPkcs7Der(kManifest, chain.signer);
  EXPECT_EQ(SIGN_ERR01, Unsign(manifest, TrustChain(chain), server));
  EXPECT_EQ(SIGN_ERR01, VerifyByDate(TrustChain(chain), server));
}

TEST_F(UnsignTest, FailedVerificationPrintsAndLogsTheLibrarysDetails) {
  Chain chain(kBuiltInTime, kBuiltInTime + 1);  // the intermediate starts after the signer
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(SIGN_ERR01,
            Unsign(manifest, TrustChain(chain), pki::SignPkcs7Der(kManifest, chain.signer)));
  const std::string printed = out.Finish();
  const std::string head = FailedDel(manifest) + kBuiltInTimeText +
                           "Verification Failed PKCS7_verify() - Error Details:";
  ASSERT_EQ(head, printed.substr(0, head.size()));
  ASSERT_EQ('\n', printed.back());
  const std::string details = printed.substr(head.size(), printed.size() - head.size() - 1);
  EXPECT_EQ("error:", details.substr(0, 6));
  EXPECT_EQ("31:Verification Failed PKCS7_verify() - Error Details:" + details + " ",
            ThirdLine(log));
}

// Only the signer can be carried, so the certificate file must hold the rest
// of the chain; any of its certificates may anchor it, a stranger's none.
TEST_F(UnsignTest, CertificateFileAnchorsTheChainAtAnyLevelButNotAStrangers) {
  Chain chain, stranger;
  const Der der = pki::SignPkcs7Der(kManifest, chain.signer);
  OutputCapture out;
  EXPECT_EQ(SIGN_ERR01, Unsign(manifest, TrustChain(stranger), der));
  EXPECT_EQ(SIGN_ERR01, Unsign(manifest, TrustFile({chain.root.cert.get()}), der));
  EXPECT_EQ(KALU_NO_ERR, Unsign(manifest, TrustFile({chain.intermediate.cert.get()}), der));
  EXPECT_EQ(KALU_NO_ERR, Unsign(manifest, TrustFile({chain.signer.cert.get()}), der));
}

TEST_F(UnsignTest, UnusableInputsAreReported) {
  Chain chain;
  const std::string trust = TrustChain(chain);
  const Der garbage(64, 0x30);
  const Der good = pki::SignPkcs7Der(kManifest, chain.signer);
  const std::string missing = dir.file("missing.pem");
  std::unique_ptr<PKCS7, Pkcs7Free> data(PKCS7_new());
  ASSERT_EQ(1, PKCS7_set_type(data.get(), NID_pkcs7_data));
  const Der plainData = Encode(data.get());
  struct Case {
    const Der* der;
    std::string trust, printed, logged;
  } cases[] = {
      {nullptr, trust, "Version Der Buffer is NULL\n", "23:Version Der Buffer is NULL"},
      {&garbage, trust, "failed to create PKCS7 structure from given DER Buffer\n",
       "31:failed to create PKCS7 structure from given DER Buffer"},
      {&good, missing, "Error loading file " + missing + "\nFailed to create X509_STORE!\n",
       "31:Failed to create X509_STORE!"},
      {&plainData, trust, "Value of l_p7type = 21\nMore than 1 Cert @ DER, can't proceed\n",
       "23:Value of l_p7type = 21"},
  };
  for (const Case& c : cases) {
    LogCapture log;
    OutputCapture out;
    EXPECT_EQ(SIGN_ERR01, EV_Unsign_using_date(manifest.c_str(), c.trust.c_str(),
                                               c.der ? c.der->data() : nullptr,
                                               c.der ? static_cast<int>(c.der->size()) : 0));
    EXPECT_EQ(FailedDel(manifest) + c.printed, out.Finish());
    EXPECT_EQ(c.logged, ThirdLine(log));
  }
}

TEST_F(UnsignTest, SignedAndEnvelopedStructureIsCheckedAtItsCertificate) {
  Chain chain;
  std::unique_ptr<PKCS7, Pkcs7Free> p7(PKCS7_new());
  ASSERT_EQ(1, PKCS7_set_type(p7.get(), NID_pkcs7_signedAndEnveloped));
  // An encryption algorithm is all the envelope needs to be encoded.
  ASSERT_EQ(1, X509_ALGOR_set0(p7->d.signed_and_enveloped->enc_data->algorithm,
                               OBJ_nid2obj(NID_aes_128_cbc), V_ASN1_UNDEF, nullptr));
  ASSERT_EQ(1, PKCS7_add_certificate(p7.get(), chain.signer.cert.get()));
  OutputCapture out;
  EXPECT_EQ(SIGN_ERR01, Unsign(manifest, TrustChain(chain), Encode(p7.get())));
  const std::string expected = FailedDel(manifest) + kBuiltInTimeText +
                               "Verification Failed PKCS7_verify() - Error Details:";
  EXPECT_EQ(expected, out.Finish().substr(0, expected.size()));
}

TEST_F(UnsignTest, OutputFileIsDeletedFirstAndAnUnwritableOneStillVerifies) {
  Chain chain;
  WriteFile(manifest, "stale");
  OutputCapture failed;
  EXPECT_EQ(SIGN_ERR01,
            Unsign(manifest, dir.file("missing.pem"), pki::SignPkcs7Der(kManifest, chain.signer)));
  EXPECT_EQ(std::string::npos, failed.Finish().find("Failed Del"));
  EXPECT_FALSE(FileExists(manifest));

  const std::string path = dir.file("absent/Version.inf");
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR,
            Unsign(path, TrustChain(chain), pki::SignPkcs7Der(kManifest, chain.signer)));
  EXPECT_EQ(FailedDel(path) + kBuiltInTimeText + "Failed to create output file:" + path + "\n ",
            out.Finish());
  EXPECT_EQ("31:Failed to create output file:" + path + " ", ThirdLine(log));
  EXPECT_FALSE(FileExists(path));
}

}  // namespace
