#include "fuzz/fuzz_support.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <vector>

namespace fuzz {

namespace {

bool Exists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

// The PKI of EV_FUZZ_PKI when it holds one; otherwise a new one, stored
// there when the variable is set.
void LoadOrMake(pki::Identity* root, pki::Identity* signer) {
  const char* dir = std::getenv("EV_FUZZ_PKI");
  const std::string base = dir != nullptr && *dir != '\0' ? dir : "";
  const std::string rootCert = base + "/root.pem";
  const std::string rootKey = base + "/root.key";
  const std::string signerCert = base + "/signer.pem";
  const std::string signerKey = base + "/signer.key";
  if (!base.empty() && Exists(rootCert) && Exists(signerKey)) {
    *root = pki::LoadIdentity(rootCert, rootKey);
    *signer = pki::LoadIdentity(signerCert, signerKey);
    return;
  }
  *root = pki::MakeRootCa("Fuzz Root", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  *signer = pki::MakeSigner("Fuzz Signer", {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)},
                            *root);
  if (base.empty()) return;
  mkdir(base.c_str(), 0700);
  pki::WriteCertificatesPem(rootCert, {root->cert.get()});
  pki::WriteKeyPem(rootKey, root->key.get());
  pki::WriteCertificatesPem(signerCert, {signer->cert.get()});
  pki::WriteKeyPem(signerKey, signer->key.get());
}

}  // namespace

void QuietProcess() {
  const char* verbose = std::getenv("EV_FUZZ_VERBOSE");
  int null = verbose != nullptr && *verbose == '1' ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null >= 0) {
    fflush(stdout);
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  setenv("TZ", "UTC", 1);
  tzset();
}

std::string MakeTempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/ev_fuzz_XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return buffer.data();
}

void RemoveTree(const std::string& path) {
  auto removeOne = [](const char* name, const struct stat*, int, struct FTW*) {
    chmod(name, 0700);
    return remove(name);
  };
  nftw(path.c_str(), removeOne, 16, FTW_DEPTH | FTW_PHYS);
}

void WriteBytes(const std::string& path, const uint8_t* data, size_t size) {
  FILE* out = fopen(path.c_str(), "wb");
  if (out == nullptr) throw std::runtime_error("cannot write " + path);
  if (size > 0) fwrite(data, 1, size, out);
  fclose(out);
}

const FixedPki& FixedPki::Get() {
  static const FixedPki* instance = new FixedPki();  // lives as long as the process
  return *instance;
}

FixedPki::FixedPki() : m_workDir(MakeTempDir()), m_trustFile(m_workDir + "/trust.pem") {
  LoadOrMake(&m_root, &m_signer);
  pki::WriteCertificatesPem(m_trustFile, {m_root.cert.get()});
  std::atexit([] { RemoveTree(Get().workDir()); });
}

}  // namespace fuzz
