// Key material and helpers shared by the signature tests: a throwaway chain
// (root, intermediate, signer) made at test time, trust files, and the
// process time zone set to UTC for the length of a test.
#ifndef TESTS_VERIFY_SIGNING_FIXTURE_H_
#define TESTS_VERIFY_SIGNING_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"
#include "tools/pki/pki.h"

namespace verifytest {

// The built-in verification time, 2015-04-07 17:15:06 UTC.
const pki::Seconds kBuiltInTime = 1428426906;

const char kManifest[] =
    "[Header]\r\nPartNumber=4711\nVersion=1.2.3\n\n"
    "[Files]\nfile0=a.bin,00ff,12\n";

// Root and intermediate valid 2010-2040; the signer starts at `signerStart`
// and ended on 2017-01-01, so it has expired by now.
struct Chain {
  explicit Chain(pki::Seconds signerStart = kBuiltInTime,
                 pki::Seconds intermediateStart = pki::UtcTime(2012, 1, 1))
      : root(pki::MakeRootCa("Test Root", {pki::UtcTime(2010, 1, 1), pki::UtcTime(2040, 1, 1)})),
        intermediate(pki::MakeIntermediateCa("Test Intermediate",
                                             {intermediateStart, pki::UtcTime(2040, 1, 1)}, root)),
        signer(pki::MakeSigner("Test Signer", {signerStart, pki::UtcTime(2017, 1, 1)},
                               intermediate)) {}

  pki::Identity root;
  pki::Identity intermediate;
  pki::Identity signer;
};

// The DER as the extract thread hands it over: in a 4096-byte buffer with
// leftovers after the structure.
inline std::vector<unsigned char> InEntryBuffer(std::vector<unsigned char> der) {
  der.resize(4096, 0xA5);
  return der;
}

// Runs the test in UTC, restoring the process's time zone afterwards.
class InUtc : public testing::Test {
 protected:
  void SetUp() override { SetZone("UTC"); }
  void TearDown() override {
    if (m_hadZone) {
      setenv("TZ", m_savedZone.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  void SetZone(const char* zone) {
    if (!m_saved) {
      const char* old = std::getenv("TZ");
      m_hadZone = old != nullptr;
      if (m_hadZone) m_savedZone = old;
      m_saved = true;
    }
    setenv("TZ", zone, 1);
    tzset();
  }

 private:
  bool m_saved = false;
  bool m_hadZone = false;
  std::string m_savedZone;
};

// A fresh directory per test, in UTC, with the certificate file "trust.pem"
// written on demand.
class SigningTest : public InUtc {
 protected:
  std::string TrustFile(const std::vector<X509*>& certs) {
    const std::string path = dir.file("trust.pem");
    pki::WriteCertificatesPem(path, certs);
    return path;
  }
  // Root and intermediate: everything but the signer.
  std::string TrustChain(const Chain& chain) {
    return TrustFile({chain.root.cert.get(), chain.intermediate.cert.get()});
  }

  testsupport::TempDir dir;
};

}  // namespace verifytest

#endif  // TESTS_VERIFY_SIGNING_FIXTURE_H_
