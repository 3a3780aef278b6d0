#include "fuzz/harness.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace fuzz {

const FixedPki& FixedPki::Get() {
  static const FixedPki instance;
  return instance;
}

// The PKI of EV_FUZZ_PKI when it holds one; otherwise a new one, stored
// there when the variable is set.
FixedPki::FixedPki() {
  const char* stored = std::getenv("EV_FUZZ_PKI");
  const std::string base = stored != nullptr ? stored : "";
  if (!base.empty() && testsupport::FileExists(base + "/signer.key")) {
    m_root = pki::LoadIdentity(base + "/root.pem", base + "/root.key");
    m_signer = pki::LoadIdentity(base + "/signer.pem", base + "/signer.key");
  } else {
    m_root = pki::MakeRootCa("Fuzz Root", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
    m_signer = pki::MakeSigner("Fuzz Signer", {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)},
                               m_root);
    for (const pki::Identity* id : {&m_root, &m_signer}) {
      if (base.empty()) break;
      mkdir(base.c_str(), 0700);
      const std::string name = base + (id == &m_root ? "/root" : "/signer");
      pki::WriteCertificatesPem(name + ".pem", {id->cert.get()});
      pki::WriteKeyPem(name + ".key", id->key.get());
    }
  }
  pki::WriteCertificatesPem(trustFile(), {m_root.cert.get()});
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* verbose = std::getenv("EV_FUZZ_VERBOSE");
  if (verbose == nullptr || *verbose != '1') {
    fflush(stdout);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  }
  setenv("TZ", "UTC", 1);
  tzset();
  fuzz::FixedPki::Get();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  testsupport::TempDir dir;
  testsupport::WriteFile(dir.file("input"), std::string(reinterpret_cast<const char*>(data), size));
  fuzz::FuzzOne(dir.path(), data, size);
  return 0;
}
