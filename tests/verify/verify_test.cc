// The two signature checks of Version.der and the certificate store they
// share: verdicts, the exact texts printed and logged, the output file, and
// the conversion of certificate times. Keys and certificates are made here.
#include "extract_verify/verify.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/provider.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "extract_verify/hash.h"
#include "extract_verify/status.h"
#include "tests/testsupport/capture.h"
#include "tests/testsupport/signed_package.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using Der = std::vector<unsigned char>;
using Lines = std::vector<std::string>;
using testsupport::ReadFile;

const unsigned int kBuiltInTime = 1428426906;  // 2015-04-07 17:15:06 UTC
// The weekday is always Sunday: the time is printed before mktime fills it.
const char kTimeText[] = "Time [@ DER] in GMT: Sun Apr  7 17:15:06 2015\n";
const char kManifest[] = "[Header]\r\nPartNumber=4711\n\n[Files]\nfile0=a.bin,00ff,12\n";

// Root and intermediate valid 2010-2040; the signer starts at `signerStart`
// and ended on 2017-01-01, so it has expired by now.
struct Chain {
  explicit Chain(pki::Seconds signerStart = kBuiltInTime,
                 pki::Seconds middle = pki::UtcTime(2012, 1, 1))
      : root(pki::MakeRootCa("Root", {pki::UtcTime(2010, 1, 1), pki::UtcTime(2040, 1, 1)})),
        intermediate(pki::MakeIntermediateCa("Middle", {middle, pki::UtcTime(2040, 1, 1)}, root)),
        signer(pki::MakeSigner("Signer", {signerStart, pki::UtcTime(2017, 1, 1)}, intermediate)) {}
  Der Sign(std::vector<X509*> carried = {}) const {
    return carried.empty() ? pki::SignPkcs7Der(kManifest, signer)
                           : pki::SignPkcs7Der(kManifest, signer, carried);
  }
  pki::Identity root, intermediate, signer;
};

// `text` as a regular expression that matches only itself.
std::string L(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

Der Encode(PKCS7* p7) {
  Der der(static_cast<size_t>(i2d_PKCS7(p7, nullptr)));
  unsigned char* cursor = der.data();
  i2d_PKCS7(p7, &cursor);
  PKCS7_free(p7);
  return der;
}

// One call of a check: its status, its whole printed text and its third log
// line (after the entry mark and the failed delete), as regular expressions.
struct Case {
  const char* name;
  bool unsign;  // EV_Unsign_using_date, else openSSL_VerifyBasedOnDate
  unsigned int status;
  std::string trust;
  std::optional<Der> der;
  std::string printed;
  std::string logged;
  std::string path = "";  // the output (unsigning) or DER path, when not the default
};

class VerifyTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
  std::string Trust(const std::vector<X509*>& certs) {
    const std::string path = dir.file("trust" + std::to_string(++m_files) + ".pem");
    pki::WriteCertificatesPem(path, certs);
    return path;
  }
  std::string Trust(const Chain& chain) {
    return Trust({chain.root.cert.get(), chain.intermediate.cert.get()});
  }
  // The unsigning check gets its DER in a 4096-byte buffer with leftovers
  // after it, as the extract thread hands it over.
  void Expect(const Case& c) {
    SCOPED_TRACE(c.name);
    testsupport::RemoveTree(manifest);
    Der buffer = c.der.value_or(Der());
    if (c.unsign && c.der) buffer.resize(4096, 0xA5);
    const char* function = c.unsign ? "EV_Unsign_using_date" : "openSSL_VerifyBasedOnDate";
    const std::string path = !c.path.empty() ? c.path : c.unsign ? manifest : der;
    testsupport::LogCapture log;
    testsupport::OutputCapture out;
    auto call = c.unsign ? EV_Unsign_using_date : openSSL_VerifyBasedOnDate;
    EXPECT_EQ(call(path.c_str(), c.trust.c_str(), c.der ? buffer.data() : nullptr,
                   static_cast<int>(buffer.size())),
              c.status);
    const std::string printed = out.Finish();
    EXPECT_TRUE(std::regex_match(printed, std::regex(c.printed))) << printed;
    const Lines logged = log.Lines(function);
    ASSERT_GE(logged.size(), 3u);
    const std::string line = logged[2].substr(0, 3) + logged[2].substr(4 + strlen(function));
    EXPECT_TRUE(std::regex_match(line, std::regex(c.logged))) << line;
    if (c.status == KALU_NO_ERR && c.path.empty()) {
      EXPECT_EQ(ReadFile(manifest), kManifest);
    }
  }

  testsupport::TempDir dir;
  const std::string manifest = dir.file("Version.inf"), der = dir.file("Version.der");
  const std::string missing = dir.file("missing.pem");
  Chain chain;
  const Der good = chain.Sign(), garbage = Der(64, 0x30);
  int m_files = 0;
};

// The host's OpenSSL configuration is the host's: each of these tests runs
// in a process of its own (CTest), whose OpenSSL the test leaves untouched
// until the host's step; the signed manifest is made in a child process.
class HostOpenSsl : public ::testing::Test {
 protected:
  HostOpenSsl() {
    setenv("TZ", "UTC", 1);
    if (fork() == 0) {
      testsupport::TestSigner signer(m_dir.file("trust.pem"));
      testsupport::WriteFile(m_dir.file("Version.der"), signer.Sign(kManifest));
      _exit(0);
    }
    wait(nullptr);
  }
  ~HostOpenSsl() override { unsetenv("OPENSSL_CONF"); }

  // The host's environment names a configuration of OpenSSL's default
  // context with these providers active.
  void HostConfigures(const std::string& providers) {
    testsupport::WriteFile(m_dir.file("host.cnf"),
                           "openssl_conf = init\n[init]\nproviders = providers\n"
                           "[providers]\n" +
                               providers + "\n[on]\nactivate = 1\n");
    setenv("OPENSSL_CONF", m_dir.file("host.cnf").c_str(), 1);
  }
  unsigned int Unsign(std::string der) {
    testsupport::OutputCapture quiet;
    return EV_Unsign_using_date(m_dir.file("Version.inf").c_str(), m_dir.file("trust.pem").c_str(),
                                reinterpret_cast<unsigned char*>(der.data()), int(der.size()));
  }

  testsupport::TempDir m_dir;
};

TEST_F(HostOpenSsl, ConfigurationOfAHostStartingAfterARunIsApplied) {
  HostConfigures("default = on\nbase = on");
  EXPECT_EQ(Unsign(ReadFile(m_dir.file("Version.der"))), KALU_NO_ERR);
  ASSERT_EQ(OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr), 1);  // the host starts OpenSSL
  EXPECT_TRUE(OSSL_PROVIDER_available(nullptr, "base"));
}

// A default context left with the null provider alone has no algorithms.
TEST_F(HostOpenSsl, ConfigurationLoadedBeforeARunChangesNoVerdict) {
  HostConfigures("null = on");
  ASSERT_EQ(OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr), 1);  // the host starts OpenSSL
  ASSERT_EQ(EVP_MD_fetch(nullptr, "SHA256", nullptr), nullptr);
  std::string der = ReadFile(m_dir.file("Version.der"));
  EXPECT_EQ(Unsign(der), KALU_NO_ERR);
  der[der.size() - 1] ^= 1;  // the signature
  EXPECT_EQ(Unsign(der), SIGN_ERR01);
  std::unique_ptr<IHash> hash(makeHash("sha256"));
  hash->finish();
  EXPECT_EQ(hash->getHash().second, 32u);
}

// The unsigning check verifies at the signer's own start and wants exactly
// one carried certificate with a signing usage; the certificate file must
// hold the rest of the chain, any of its certificates may anchor it. The
// built-in-time check verifies at that time, builds the chain from the
// certificate file alone and writes the manifest beside the DER file. Each
// case is a test of its own, named "unsign_..." or "dated_...".
class Verdict : public VerifyTest, public ::testing::WithParamInterface<std::string> {
 protected:
  std::vector<Case> Cases();
};

TEST_P(Verdict, IsPrintedAndLogged) {
  for (const Case& c : Cases()) {
    if ((c.unsign ? "unsign_" : "dated_") + std::string(c.name) == GetParam()) return Expect(c);
  }
  FAIL() << "no case " << GetParam();
}

std::vector<std::string> VerdictNames() {
  std::istringstream names(
      "unsign_expired_signer unsign_late_signer unsign_intermediate_anchor unsign_root_alone "
      "unsign_stranger unsign_starts_after unsign_server_usage unsign_enveloped unsign_revoked "
      "unsign_other_revoked unsign_two_carried unsign_none_carried unsign_no_buffer "
      "unsign_garbage unsign_missing_trust unsign_plain_data unsign_unwritable "
      "dated_expired_signer dated_intermediate_anchor dated_carried_certificates "
      "dated_after_built_in_time dated_server_usage dated_tampered dated_revoked "
      "dated_other_revoked dated_no_buffer dated_garbage dated_not_PEM dated_unwritable");
  return {std::istream_iterator<std::string>(names), std::istream_iterator<std::string>()};
}

INSTANTIATE_TEST_SUITE_P(BothChecks, Verdict, ::testing::ValuesIn(VerdictNames()),
                         [](const auto& info) { return info.param; });

std::vector<Case> Verdict::Cases() {
  Chain late(pki::UtcTime(2016, 6, 1)), stranger, startsAfter(kBuiltInTime, kBuiltInTime + 1);
  Chain server;  // its signer re-issued for server authentication
  testsupport::SetExtendedKeyUsage(server.signer.cert.get(), "serverAuth",
                                   server.intermediate.key.get());
  const Der lateDer = late.Sign(), afterDer = startsAfter.Sign(), serverDer = server.Sign();
  const Der two = chain.Sign({chain.signer.cert.get(), chain.intermediate.cert.get()});
  const Der none = pki::SignPkcs7Der(kManifest, chain.signer, {});
  PKCS7* data = PKCS7_new();
  PKCS7_set_type(data, NID_pkcs7_data);
  const Der plain = Encode(data);
  PKCS7* envelope = PKCS7_new();  // an encryption algorithm is all it needs
  PKCS7_set_type(envelope, NID_pkcs7_signedAndEnveloped);
  X509_ALGOR_set0(envelope->d.signed_and_enveloped->enc_data->algorithm,
                  OBJ_nid2obj(NID_aes_128_cbc), V_ASN1_UNDEF, nullptr);
  PKCS7_add_certificate(envelope, chain.signer.cert.get());
  const Der enveloped = Encode(envelope);
  Der tampered = good;
  *std::search(tampered.begin(), tampered.end(), kManifest + 18, kManifest + 22) = '5';

  const std::string trust = Trust(chain), root = Trust({chain.root.cert.get()});
  const std::string middle = Trust({chain.intermediate.cert.get()});
  const std::string del = L("Failed Del: " + manifest + " / 2"), ok = del + L(kTimeText);
  const std::string failed =
      ok + L("Verification Failed PKCS7_verify() - Error Details:") + "error:[^\n]*\n";
  const std::string failedLog =
      L("31:Verification Failed PKCS7_verify() - Error Details:") + "error:.* ";
  const std::string one = "More than 1 Cert @ DER, can't proceed";
  const std::string absent = dir.file("absent/Version.inf"), notPem = dir.file("not.pem");
  testsupport::WriteFile(notPem, "-----BEGIN NONSENSE-----\n");
  const std::string rm = L("Remove Failed -" + manifest + " / Err: 2");
  auto refused = [&](const std::string& file) {
    return rm + "Verification Failure\\. Error= [0-9]+\nError details=error:[^\n]*\n" +
           L("Verification failed on given DerFile:" + der + ", CertFile:" + file + " \n");
  };
  const std::string lateTrust = Trust(late), serverTrust = Trust(server);
  // CRLs issued after the check time: the signer's CA revokes it, or another
  // of its signers while the root lists the signer's serial number.
  const std::string revokedTrust = Trust(chain), otherRevoked = Trust(chain);
  const pki::Seconds issued = pki::UtcTime(2016, 1, 2);
  pki::AppendCrlPem(revokedTrust, chain.intermediate, {{chain.signer.cert.get(), issued}}, issued);
  pki::AppendCrlPem(otherRevoked, chain.intermediate, {{late.signer.cert.get(), issued}}, issued);
  pki::AppendCrlPem(otherRevoked, chain.root, {{chain.signer.cert.get(), issued}}, issued);
  const std::string revokedLine = L("Signer certificate is revoked by a CRL in " + revokedTrust);
  const Case cases[] = {
      {"expired_signer", true, KALU_NO_ERR, trust, good, ok, "23:-"},
      {"late_signer", true, KALU_NO_ERR, lateTrust, lateDer,
       del + L("Time [@ DER] in GMT: Sun Jun  1 00:00:00 2016\n"), "23:-"},
      {"intermediate_anchor", true, KALU_NO_ERR, middle, good, ok, "23:-"},
      {"root_alone", true, SIGN_ERR01, root, good, failed, failedLog},
      {"stranger", true, SIGN_ERR01, Trust(stranger), good, failed, failedLog},
      {"starts_after", true, SIGN_ERR01, Trust(startsAfter), afterDer, failed, failedLog},
      {"server_usage", true, SIGN_ERR01, serverTrust, serverDer, failed, failedLog},
      {"enveloped", true, SIGN_ERR01, trust, enveloped, failed, failedLog},
      {"revoked", true, SIGN_ERR01, revokedTrust, good, failed + revokedLine + "\n", failedLog},
      {"other_revoked", true, KALU_NO_ERR, otherRevoked, good, ok, "23:-"},
      {"two_carried", true, SIGN_ERR01, trust, two, del + L(one + "\n"), L("23:" + one)},
      {"none_carried", true, SIGN_ERR01, trust, none, del + L(one + "\n"), L("23:" + one)},
      {"no_buffer", true, SIGN_ERR01, trust, std::nullopt, del + "Version Der Buffer is NULL\n",
       "23:Version Der Buffer is NULL"},
      {"garbage", true, SIGN_ERR01, trust, garbage,
       del + "failed to create PKCS7 structure from given DER Buffer\n",
       "31:failed to create PKCS7 structure from given DER Buffer"},
      {"missing_trust", true, SIGN_ERR01, missing, good,
       del + L("Error loading file " + missing + "\nFailed to create X509_STORE!\n"),
       L("31:Failed to create X509_STORE!")},
      {"plain_data", true, SIGN_ERR01, trust, plain,
       del + L("Value of l_p7type = 21\n" + one + "\n"), "23:Value of l_p7type = 21"},
      {"unwritable", true, KALU_NO_ERR, trust, good,
       L("Failed Del: " + absent + " / 2" + kTimeText + "Failed to create output file:" + absent +
         "\n "),
       L("31:Failed to create output file:" + absent + " "), absent},
      {"expired_signer", false, KALU_NO_ERR, trust, good, rm, "23:-"},
      {"intermediate_anchor", false, KALU_NO_ERR, middle, two, rm, "23:-"},
      {"carried_certificates", false, SIGN_ERR01, root, two, refused(root),
       L("23:Verification failed on given DerFile:" + der + ", CertFile:" + root)},
      {"after_built_in_time", false, SIGN_ERR01, lateTrust, lateDer, refused(lateTrust), ".*"},
      {"server_usage", false, SIGN_ERR01, serverTrust, serverDer, refused(serverTrust), ".*"},
      {"tampered", false, SIGN_ERR01, trust, tampered, refused(trust), ".*"},
      {"revoked", false, SIGN_ERR01, revokedTrust, good, refused(revokedTrust) + revokedLine + "\n",
       ".*"},
      {"other_revoked", false, KALU_NO_ERR, otherRevoked, good, rm, "23:-"},
      {"no_buffer", false, SIGN_ERR01, trust, std::nullopt, rm + "ERR: File open failed\n",
       "31:ERR: File open failed"},
      {"garbage", false, SIGN_ERR01, trust, garbage, rm + "ERR: Extracing PKCS7 failed\n",
       "31:ERR: Extracing PKCS7 failed"},
      {"not_PEM", false, SIGN_ERR01, notPem, good,
       rm + L("Error loading file " + notPem + "\nERR: Failed to create store!"),
       L("31:ERR: Failed to create store!")},
      {"unwritable", false, KALU_NO_ERR, trust, good,
       L("Remove Failed -" + absent + " / Err: 2ERR: Failed to create output file!\n"),
       L("31:ERR: Failed to create output file!"), dir.file("absent/Version.der")},
  };
  return std::vector<Case>(std::begin(cases), std::end(cases));
}

// Both delete a stale output first, even when the check then fails; the
// built-in-time check replaces the last three characters of the DER path
// (a shorter path throws before anything is deleted).
TEST_F(VerifyTest, OutputIsDeletedFirstAndNamedAfterTheDerPath) {
  for (auto check : {EV_Unsign_using_date, openSSL_VerifyBasedOnDate}) {
    testsupport::WriteFile(manifest, "stale");
    testsupport::OutputCapture out;
    const std::string path = check == EV_Unsign_using_date ? manifest : der;
    EXPECT_EQ(check(path.c_str(), missing.c_str(), good.data(), static_cast<int>(good.size())),
              SIGN_ERR01);
    EXPECT_EQ(out.Finish().rfind("Error loading file", 0), 0u);  // no failed delete first
    EXPECT_FALSE(testsupport::FileExists(manifest));
  }
  // The last three characters, not the extension.
  const std::string trust = Trust(chain), named = dir.file("Versionabc");
  testsupport::OutputCapture out;
  EXPECT_EQ(openSSL_VerifyBasedOnDate(named.c_str(), trust.c_str(), good.data(), int(good.size())),
            KALU_NO_ERR);
  EXPECT_THROW(openSSL_VerifyBasedOnDate("ab", trust.c_str(), good.data(), int(good.size())),
               std::out_of_range);
  EXPECT_EQ(out.Finish(), "Remove Failed -" + dir.file("Versioninf") + " / Err: 2");
  EXPECT_EQ(ReadFile(dir.file("Versioninf")), kManifest);
}

// The checks pass no directory; one that the hashed lookup refuses (the
// empty name) ends the store, reported on all three channels.
TEST_F(VerifyTest, StoreReportsADirectoryItCannotAdd) {
  BIO* diagnostics = BIO_new(BIO_s_mem());
  testsupport::LogCapture log;
  testsupport::OutputCapture out;
  EXPECT_EQ(create_store(diagnostics, Trust(chain).c_str(), ""), nullptr);
  char* text = nullptr;
  const long length = BIO_get_mem_data(diagnostics, &text);
  EXPECT_EQ(std::string(text, static_cast<size_t>(length)) + out.Finish(),
            "Error loading directory \nError loading directory \n");
  EXPECT_EQ(log.Lines("create_store"), Lines{"31:create_store:Error loading directory  "});
  BIO_free(diagnostics);
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

// Other types start at the month of 1900 (all ones where time_t cannot hold
// it); a short text reads as NULs and is never read past (AddressSanitizer
// builds catch that); the process's zone counts.
TEST_F(VerifyTest, CertificateTimesAreConvertedInTheProcesssZone) {
  {
    testsupport::LogCapture log;
    testsupport::OutputCapture out;
    EXPECT_EQ(Convert(V_ASN1_UTCTIME, "150407171506Z"), kBuiltInTime);
    EXPECT_EQ(out.Finish(), kTimeText);
    const std::string at = "23:EVGetTimefrmASN1Format:";
    EXPECT_EQ(log.Lines(), (Lines{at + "+", at + kTimeText, at + "-"}));
  }
  testsupport::OutputCapture quiet;
  const bool wide = sizeof(time_t) == 8;
  const std::tuple<int, std::string, unsigned int> cases[] = {
      {V_ASN1_UTCTIME, "700101000000Z", 0u},
      {V_ASN1_UTCTIME, "991231235959Z", 946684799u},
      {V_ASN1_UTCTIME, "000101000000Z", 946684800u},
      {V_ASN1_UTCTIME, "691231235959Z", wide ? 3155759999u : 0xFFFFFFFFu},
      {V_ASN1_GENERALIZEDTIME, "20150407171506.75+0200", kBuiltInTime},
      {V_ASN1_OCTET_STRING, "0407171506", wide ? 2094335002u : 0xFFFFFFFFu},
      {V_ASN1_GENERALIZEDTIME, "2015", Convert(V_ASN1_GENERALIZEDTIME, {"2015\0\0\0\0\0", 9})}};
  for (const auto& c : cases) {
    EXPECT_EQ(Convert(std::get<0>(c), std::get<1>(c)), std::get<2>(c)) << std::get<1>(c);
  }
  Convert(V_ASN1_UTCTIME, "");
  setenv("TZ", "UTC-2", 1);  // two hours east, no daylight saving
  tzset();
  EXPECT_EQ(Convert(V_ASN1_UTCTIME, "150407171506Z"), kBuiltInTime - 7200u);
}

}  // namespace
