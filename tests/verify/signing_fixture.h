// What the signature tests share: a throwaway chain (root, intermediate,
// signer) made at test time, trust files in a fresh directory, the process
// time zone set to UTC for the length of a test, and the two checks run with
// their output and log captured. For one thread.
#ifndef TESTS_VERIFY_SIGNING_FIXTURE_H_
#define TESTS_VERIFY_SIGNING_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/testsupport/temp_dir.h"
#include "tools/pki/pki.h"

namespace verifytest {

using Der = std::vector<unsigned char>;

// The built-in verification time, 2015-04-07 17:15:06 UTC.
const pki::Seconds kBuiltInTime = 1428426906;
// The weekday is always Sunday: the time is printed before mktime fills it.
const char kTimeText[] = "Time [@ DER] in GMT: Sun Apr  7 17:15:06 2015\n";
const char kManifest[] = "[Header]\r\nPartNumber=4711\nVersion=1.2.3\n\n[Files]\nfile0=a.bin,00ff,12\n";

// Root and intermediate valid 2010-2040; the signer starts at `signerStart`
// and ended on 2017-01-01, so it has expired by now.
struct Chain {
  explicit Chain(pki::Seconds signerStart = kBuiltInTime,
                 pki::Seconds intermediateStart = pki::UtcTime(2012, 1, 1));
  Der Sign() const { return pki::SignPkcs7Der(kManifest, signer); }

  pki::Identity root;
  pki::Identity intermediate;
  pki::Identity signer;
};

// What a check returned, printed and logged (log lines "level:text" of the
// check's own function).
struct Outcome {
  unsigned int status;
  std::string printed;
  std::vector<std::string> logged;
};

class SigningTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  void SetZone(const char* zone);

  std::string TrustFile(const std::vector<X509*>& certs);  // a new file each time
  std::string TrustChain(const Chain& chain);  // everything but the signer
  // The checks; the unsigning one gets `der` in a 4096-byte buffer with
  // leftovers after it, as the extract thread hands it over.
  Outcome Unsign(const std::string& manifestPath, const std::string& trust, const Der* der);
  Outcome VerifyByDate(const std::string& derPath, const std::string& trust, const Der* der);

  testsupport::TempDir dir;
  const std::string manifest = dir.file("Version.inf");

 private:
  int m_trustFiles = 0;
  bool m_hadZone = false;
  std::string m_savedZone;
};

}  // namespace verifytest

#endif  // TESTS_VERIFY_SIGNING_FIXTURE_H_
