// The two signature checks of Version.der and the certificate store they
// share: verdicts, the exact texts printed and logged, the output file, and
// the conversion of certificate times.
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <climits>
#include <limits>
#include <regex>
#include <stdexcept>

#include "status/kalu_status.h"
#include "tests/testsupport/capture.h"
#include "tests/verify/signing_fixture.h"
#include "verify/cert_store.h"
#include "verify/unsign.h"

namespace verifytest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::WriteFile;
using Lines = std::vector<std::string>;

// `text` as a regular expression that matches only itself.
std::string L(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

Der Encode(PKCS7* p7) {
  Der der(static_cast<size_t>(i2d_PKCS7(p7, nullptr)));
  unsigned char* cursor = der.data();
  i2d_PKCS7(p7, &cursor);
  return der;
}

// The signer re-issued for server authentication instead of e-mail protection.
void ReissueForServers(Chain& chain) {
  X509* cert = chain.signer.cert.get();
  X509_EXTENSION_free(X509_delete_ext(cert, X509_get_ext_by_NID(cert, NID_ext_key_usage, -1)));
  X509_EXTENSION* usage = X509V3_EXT_nconf_nid(nullptr, nullptr, NID_ext_key_usage, "serverAuth");
  X509_add_ext(cert, usage, -1);
  X509_EXTENSION_free(usage);
  X509_sign(cert, chain.intermediate.key.get(), EVP_sha256());
}

// One call of a check: the whole printed text and the log line after the
// entry mark and the failed delete, both as regular expressions.
struct Case {
  std::string name;
  unsigned int status;
  std::string trust;
  const Der* der;
  std::string printed;
  std::string logged;
  std::string path = "";  // the check's file argument, when not the default
};

class SignatureTest : public SigningTest {
 protected:
  void Expect(const Case& c, bool unsign) {
    SCOPED_TRACE(c.name);
    testsupport::RemoveTree(manifest);
    const Outcome got = unsign ? Unsign(c.path.empty() ? manifest : c.path, c.trust, c.der)
                               : VerifyByDate(c.path.empty() ? der : c.path, c.trust, c.der);
    EXPECT_EQ(got.status, c.status);
    EXPECT_TRUE(std::regex_match(got.printed, std::regex(c.printed))) << got.printed;
    ASSERT_GE(got.logged.size(), 3u);
    EXPECT_TRUE(std::regex_match(got.logged[2], std::regex(c.logged))) << got.logged[2];
    if (c.status == KALU_NO_ERR && c.path.empty()) {
      EXPECT_EQ(ReadFile(manifest), kManifest);
    }
  }
  std::string Deleted(const std::string& path) {
    return L("Failed Del: " + path + " / " + std::to_string(ENOENT));
  }
  std::string Removed(const std::string& path) {
    return L("Remove Failed -" + path + " / Err: " + std::to_string(ENOENT));
  }

  const std::string der = dir.file("Version.der");
  const std::string missing = dir.file("missing.pem");
  Chain chain;
  const Der good = chain.Sign();
  const Der garbage = Der(64, 0x30);
};

// This check verifies at the signer's own start, and wants exactly one
// carried certificate with a signing usage; the certificate file must hold
// the rest of the chain, and any of its certificates may anchor it.
TEST_F(SignatureTest, UnsigningChecksPrintAndLogTheirVerdict) {
  Chain late(pki::UtcTime(2016, 6, 1)), stranger, startsAfter(kBuiltInTime, kBuiltInTime + 1);
  Chain server;
  ReissueForServers(server);
  const Der lateDer = late.Sign(), strangerDer = startsAfter.Sign(), serverDer = server.Sign();
  const Der two = pki::SignPkcs7Der(kManifest, chain.signer,
                                    {chain.signer.cert.get(), chain.intermediate.cert.get()});
  const Der none = pki::SignPkcs7Der(kManifest, chain.signer, {});
  PKCS7* data = PKCS7_new();
  PKCS7_set_type(data, NID_pkcs7_data);
  const Der plain = Encode(data);
  PKCS7_free(data);
  // An encryption algorithm is all a signed-and-enveloped structure needs.
  PKCS7* envelope = PKCS7_new();
  PKCS7_set_type(envelope, NID_pkcs7_signedAndEnveloped);
  X509_ALGOR_set0(envelope->d.signed_and_enveloped->enc_data->algorithm,
                  OBJ_nid2obj(NID_aes_128_cbc), V_ASN1_UNDEF, nullptr);
  PKCS7_add_certificate(envelope, chain.signer.cert.get());
  const Der enveloped = Encode(envelope);
  PKCS7_free(envelope);

  const std::string trust = TrustChain(chain), ok = Deleted(manifest) + L(kTimeText);
  const std::string failed = ok + L("Verification Failed PKCS7_verify() - Error Details:") +
                             "error:[^\n]*\n";
  const std::string failedLog = L("31:Verification Failed PKCS7_verify() - Error Details:") +
                                "error:.* ";
  const std::string moreThanOne = "More than 1 Cert @ DER, can't proceed";
  const std::string absent = dir.file("absent/Version.inf");
  const Case cases[] = {
      {"expired signer", KALU_NO_ERR, trust, &good, ok, "23:-"},
      {"signer after the built-in time", KALU_NO_ERR, TrustChain(late), &lateDer,
       Deleted(manifest) + L("Time [@ DER] in GMT: Sun Jun  1 00:00:00 2016\n"), "23:-"},
      {"intermediate as anchor", KALU_NO_ERR, TrustFile({chain.intermediate.cert.get()}), &good,
       ok, "23:-"},
      {"signer as anchor", KALU_NO_ERR, TrustFile({chain.signer.cert.get()}), &good, ok, "23:-"},
      {"root alone", SIGN_ERR01, TrustFile({chain.root.cert.get()}), &good, failed, failedLog},
      {"stranger", SIGN_ERR01, TrustChain(stranger), &good, failed, failedLog},
      {"intermediate starts after the signer", SIGN_ERR01, TrustChain(startsAfter), &strangerDer,
       failed, failedLog},
      {"server usage", SIGN_ERR01, TrustChain(server), &serverDer, failed, failedLog},
      {"enveloped", SIGN_ERR01, trust, &enveloped, failed, failedLog},
      {"two carried", SIGN_ERR01, trust, &two, Deleted(manifest) + L(moreThanOne + "\n"),
       L("23:" + moreThanOne)},
      {"none carried", SIGN_ERR01, trust, &none, Deleted(manifest) + L(moreThanOne + "\n"),
       L("23:" + moreThanOne)},
      {"no buffer", SIGN_ERR01, trust, nullptr, Deleted(manifest) + "Version Der Buffer is NULL\n",
       "23:Version Der Buffer is NULL"},
      {"garbage", SIGN_ERR01, trust, &garbage,
       Deleted(manifest) + "failed to create PKCS7 structure from given DER Buffer\n",
       "31:failed to create PKCS7 structure from given DER Buffer"},
      {"missing trust file", SIGN_ERR01, missing, &good,
       Deleted(manifest) + L("Error loading file " + missing + "\nFailed to create X509_STORE!\n"),
       L("31:Failed to create X509_STORE!")},
      {"plain data", SIGN_ERR01, trust, &plain,
       Deleted(manifest) + L("Value of l_p7type = 21\n" + moreThanOne + "\n"),
       "23:Value of l_p7type = 21"},
      {"unwritable output", KALU_NO_ERR, trust, &good,
       Deleted(absent) + L(kTimeText + ("Failed to create output file:" + absent + "\n ")),
       L("31:Failed to create output file:" + absent + " "), absent},
  };
  for (const Case& c : cases) Expect(c, true);
  testsupport::RemoveTree(manifest);
  EXPECT_EQ(Unsign(manifest, trust, &good).logged,
            (Lines{"23:+", "31:Failed Del: " + manifest + " / 2 ", "23:-"}));
}

// This check verifies at the built-in time, builds the chain from the
// certificate file alone and writes the manifest beside the DER file.
TEST_F(SignatureTest, BuiltInTimeChecksPrintAndLogTheirVerdict) {
  Chain late(kBuiltInTime + 1), server;
  ReissueForServers(server);
  const Der lateDer = late.Sign(), serverDer = server.Sign();
  const Der carrying = pki::SignPkcs7Der(kManifest, chain.signer,
                                         {chain.signer.cert.get(), chain.intermediate.cert.get()});
  Der tampered = good;
  const std::string marker = "PartNumber=4711";
  auto at = std::search(tampered.begin(), tampered.end(), marker.begin(), marker.end());
  ASSERT_NE(at, tampered.end());
  at[marker.size() - 1] = '2';
  const std::string notPem = dir.file("not.pem");
  WriteFile(notPem, "-----BEGIN NONSENSE-----\n");

  const std::string trust = TrustChain(chain), root = TrustFile({chain.root.cert.get()});
  const std::string lateTrust = TrustChain(late), serverTrust = TrustChain(server);
  const std::string failedOn = "Verification failed on given DerFile:" + der + ", CertFile:";
  auto failed = [&](const std::string& file) {
    return Removed(manifest) + "Verification Failure\\. Error= [0-9]+\nError details=error:[^\n]*\n" +
           L(failedOn + file + " \n");
  };
  const std::string absent = dir.file("absent/Version.der");
  const Case cases[] = {
      {"expired signer", KALU_NO_ERR, trust, &good, Removed(manifest), "23:-"},
      {"carried certificates do not help", SIGN_ERR01, root, &carrying, failed(root),
       L("23:" + failedOn + root)},
      {"intermediate as anchor", KALU_NO_ERR, TrustFile({chain.intermediate.cert.get()}),
       &carrying, Removed(manifest), "23:-"},
      {"signer valid after the built-in time", SIGN_ERR01, lateTrust, &lateDer, failed(lateTrust),
       L("23:" + failedOn + lateTrust)},
      {"tampered", SIGN_ERR01, trust, &tampered, failed(trust), ".*"},
      {"server usage", SIGN_ERR01, serverTrust, &serverDer, failed(serverTrust), ".*"},
      {"no buffer", SIGN_ERR01, trust, nullptr, Removed(manifest) + "ERR: File open failed\n",
       "31:ERR: File open failed"},
      {"garbage", SIGN_ERR01, trust, &garbage, Removed(manifest) + "ERR: Extracing PKCS7 failed\n",
       "31:ERR: Extracing PKCS7 failed"},
      {"not PEM", SIGN_ERR01, notPem, &good,
       Removed(manifest) + L("Error loading file " + notPem + "\nERR: Failed to create store!"),
       L("31:ERR: Failed to create store!")},
      {"missing trust file", SIGN_ERR01, missing, &good,
       Removed(manifest) + L("Error loading file " + missing + "\nERR: Failed to create store!"),
       L("31:ERR: Failed to create store!")},
      {"unwritable output", KALU_NO_ERR, trust, &good,
       Removed(dir.file("absent/Version.inf")) + L("ERR: Failed to create output file!\n"),
       L("31:ERR: Failed to create output file!"), absent},
  };
  for (const Case& c : cases) Expect(c, false);
}

// Both delete a stale output first, even when the check then fails; the
// built-in-time check replaces the last three characters of the DER path
// (a shorter path throws before anything is deleted).
TEST_F(SignatureTest, OutputIsDeletedFirstAndNamedAfterTheDerPath) {
  for (bool unsign : {true, false}) {
    WriteFile(manifest, "stale");
    const Outcome got = unsign ? Unsign(manifest, missing, &good) : VerifyByDate(der, missing, &good);
    EXPECT_EQ(got.status, SIGN_ERR01);
    EXPECT_EQ(got.printed.find("Fail"), got.printed.find("Failed to create"));
    EXPECT_FALSE(FileExists(manifest));
  }
  char cwd[PATH_MAX];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  const std::string trust = TrustChain(chain);
  EXPECT_EQ(VerifyByDate("abc", trust, &good).printed, "Remove Failed -inf / Err: 2");
  EXPECT_EQ(ReadFile(dir.file("inf")), kManifest);
  WriteFile(dir.file("a"), "keep");
  EXPECT_THROW(VerifyByDate("ab", trust, &good), std::out_of_range);
  EXPECT_THROW(VerifyByDate("", trust, &good), std::out_of_range);
  EXPECT_EQ(ReadFile(dir.file("inf")) + ReadFile(dir.file("a")), kManifest + std::string("keep"));
  EXPECT_EQ(chdir(cwd), 0);
}

// Converts `text` as an ASN.1 string of `type`.
unsigned int Convert(int type, const std::string& text) {
  ASN1_STRING* time = ASN1_STRING_type_new(type);
  ASN1_STRING_set(time, text.data(), static_cast<int>(text.size()));
  unsigned int seconds = 7;
  EXPECT_EQ(EVGetTimefrmASN1Format(time, seconds), 0);
  ASN1_STRING_free(time);
  return seconds;
}

// What the conversion stores for `utc` in a UTC process: its low 32 bits
// when time_t can hold it, else all ones (mktime fails).
unsigned int Stored(pki::Seconds utc) {
  const bool fits = utc >= std::numeric_limits<std::time_t>::min() &&
                    utc <= std::numeric_limits<std::time_t>::max();
  return fits ? static_cast<unsigned int>(utc) : 0xFFFFFFFFu;
}

// Other types start at the month of 1900; a short text reads as NULs and is
// never read past (AddressSanitizer builds catch that); the zone counts.
TEST_F(SignatureTest, CertificateTimesAreConvertedInTheProcesssZone) {
  {
    testsupport::LogCapture log;
    testsupport::OutputCapture out;
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "150407171506Z"), kBuiltInTime);
    EXPECT_EQ(out.Finish(), kTimeText);
    EXPECT_EQ(log.Lines("EVGetTimefrmASN1Format"),
              (Lines{"23:EVGetTimefrmASN1Format:+",
                     std::string("23:EVGetTimefrmASN1Format:") + kTimeText,
                     "23:EVGetTimefrmASN1Format:-"}));
  }
  testsupport::OutputCapture quiet;
  const std::tuple<int, std::string, unsigned int> cases[] = {
      {V_ASN1_UTCTIME, "700101000000Z", 0u},
      {V_ASN1_UTCTIME, "991231235959Z", 946684799u},
      {V_ASN1_UTCTIME, "000101000000Z", 946684800u},
      {V_ASN1_UTCTIME, "691231235959Z", Stored(pki::UtcTime(2069, 12, 31, 23, 59, 59))},
      {V_ASN1_GENERALIZEDTIME, "20150407171506.75+0200", kBuiltInTime},
      {V_ASN1_OCTET_STRING, "0407171506", Stored(pki::UtcTime(1900, 4, 7, 17, 15, 6))},
      {V_ASN1_GENERALIZEDTIME, "2015",
       Convert(V_ASN1_GENERALIZEDTIME, std::string("2015") + std::string(10, '\0'))}};
  for (const auto& c : cases) {
    EXPECT_EQ(Convert(std::get<0>(c), std::get<1>(c)), std::get<2>(c)) << std::get<1>(c);
  }
  Convert(V_ASN1_UTCTIME, "");
  SetZone("UTC-2");  // two hours east, no daylight saving
  EXPECT_EQ(Convert(V_ASN1_UTCTIME, "150407171506Z"), kBuiltInTime - 7200u);
}

std::string Contents(BIO* memory) {
  BUF_MEM* buffer = nullptr;
  BIO_get_mem_ptr(memory, &buffer);
  return std::string(buffer->data, buffer->length);
}

TEST_F(SignatureTest, StoreLoadsTheWholeFileAndReportsWhatItCannotLoad) {
  unsigned int time = 0;
  EXPECT_TRUE(GetTimeFromFile(time));
  EXPECT_EQ(time, kBuiltInTime);
  X509_STORE* store = create_store(nullptr, TrustChain(chain).c_str(), nullptr);
  ASSERT_NE(store, nullptr);
  EXPECT_EQ(sk_X509_OBJECT_num(X509_STORE_get0_objects(store)), 2);
  X509_STORE_free(store);

  const std::string notPem = dir.file("not.pem"), trust = TrustChain(chain);
  WriteFile(notPem, "this is not a certificate\n");
  // An empty directory name is the one that the hashed-directory lookup refuses.
  const std::pair<std::string, std::string> failures[] = {
      {notPem, "Error loading file " + notPem}, {missing, "Error loading file " + missing},
      {trust, "Error loading directory "}};
  for (const auto& f : failures) {
    BIO* diagnostics = BIO_new(BIO_s_mem());
    testsupport::LogCapture log;
    testsupport::OutputCapture out;
    EXPECT_EQ(create_store(diagnostics, f.first.c_str(), f.first == trust ? "" : nullptr), nullptr);
    EXPECT_EQ(out.Finish(), f.second + "\n");
    EXPECT_EQ(Contents(diagnostics), f.second + "\n");
    EXPECT_EQ(log.Lines("create_store"), Lines{"31:create_store:" + f.second + " "});
    BIO_free(diagnostics);
  }
}

}  // namespace
}  // namespace verifytest
