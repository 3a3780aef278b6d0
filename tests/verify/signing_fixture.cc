#include "tests/verify/signing_fixture.h"

#include <cstdlib>
#include <ctime>
#include <functional>

#include "tests/testsupport/capture.h"
#include "verify/unsign.h"
#include "verify/verify_by_date.h"

namespace verifytest {

namespace {

Outcome Captured(const char* function, const std::function<unsigned int()>& check) {
  testsupport::LogCapture log;
  testsupport::OutputCapture output;
  Outcome outcome;
  outcome.status = check();
  outcome.printed = output.Finish();
  for (std::string line : log.Lines(function)) {
    outcome.logged.push_back(line.erase(line.find(':'), std::string(function).size() + 1));
  }
  return outcome;
}

}  // namespace

Chain::Chain(pki::Seconds signerStart, pki::Seconds intermediateStart)
    : root(pki::MakeRootCa("Test Root", {pki::UtcTime(2010, 1, 1), pki::UtcTime(2040, 1, 1)})),
      intermediate(pki::MakeIntermediateCa("Test Intermediate",
                                           {intermediateStart, pki::UtcTime(2040, 1, 1)}, root)),
      signer(pki::MakeSigner("Test Signer", {signerStart, pki::UtcTime(2017, 1, 1)},
                             intermediate)) {}

void SigningTest::SetUp() {
  const char* zone = std::getenv("TZ");
  m_hadZone = zone != nullptr;
  if (m_hadZone) m_savedZone = zone;
  SetZone("UTC");
}

void SigningTest::TearDown() {
  if (m_hadZone) {
    setenv("TZ", m_savedZone.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

void SigningTest::SetZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

std::string SigningTest::TrustFile(const std::vector<X509*>& certs) {
  const std::string path = dir.file("trust" + std::to_string(++m_trustFiles) + ".pem");
  pki::WriteCertificatesPem(path, certs);
  return path;
}

std::string SigningTest::TrustChain(const Chain& chain) {
  return TrustFile({chain.root.cert.get(), chain.intermediate.cert.get()});
}

Outcome SigningTest::Unsign(const std::string& manifestPath, const std::string& trust,
                            const Der* der) {
  Der buffer;
  if (der != nullptr) {
    buffer = *der;
    buffer.resize(4096, 0xA5);
  }
  return Captured("EV_Unsign_using_date", [&] {
    return EV_Unsign_using_date(manifestPath.c_str(), trust.c_str(),
                                der != nullptr ? buffer.data() : nullptr,
                                static_cast<int>(buffer.size()));
  });
}

Outcome SigningTest::VerifyByDate(const std::string& derPath, const std::string& trust,
                                  const Der* der) {
  return Captured("openSSL_VerifyBasedOnDate", [&] {
    return openSSL_VerifyBasedOnDate(derPath.c_str(), trust.c_str(),
                                     der != nullptr ? der->data() : nullptr,
                                     der != nullptr ? static_cast<int>(der->size()) : 0);
  });
}

}  // namespace verifytest
