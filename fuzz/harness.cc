#include "fuzz/harness.h"

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

namespace {

// The PKI of EV_FUZZ_PKI when it holds one; otherwise a new one, stored
// there when the variable is set.
void LoadOrMake(pki::Identity* root, pki::Identity* signer) {
  const char* dir = std::getenv("EV_FUZZ_PKI");
  const std::string base = dir != nullptr ? dir : "";
  if (!base.empty() && access((base + "/signer.key").c_str(), R_OK) == 0) {
    *root = pki::LoadIdentity(base + "/root.pem", base + "/root.key");
    *signer = pki::LoadIdentity(base + "/signer.pem", base + "/signer.key");
    return;
  }
  *root = pki::MakeRootCa("Fuzz Root", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  *signer = pki::MakeSigner("Fuzz Signer", {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)},
                            *root);
  if (base.empty()) return;
  mkdir(base.c_str(), 0700);
  for (const auto* id : {root, signer}) {
    const std::string name = base + (id == root ? "/root" : "/signer");
    pki::WriteCertificatesPem(name + ".pem", {id->cert.get()});
    pki::WriteKeyPem(name + ".key", id->key.get());
  }
}

}  // namespace

void WriteBytes(const std::string& path, const std::string& bytes) {
  FILE* out = fopen(path.c_str(), "wb");
  if (out == nullptr) throw std::runtime_error("cannot write " + path);
  fwrite(bytes.data(), 1, bytes.size(), out);
  fclose(out);
}

const FixedPki& FixedPki::Get() {
  static const FixedPki* instance = new FixedPki();  // lives as long as the process
  return *instance;
}

FixedPki::FixedPki() : m_workDir(MakeTempDir()), m_trustFile(m_workDir + "/trust.pem") {
  LoadOrMake(&m_root, &m_signer);
  pki::WriteCertificatesPem(m_trustFile, {m_root.cert.get()});
  std::atexit([] { RemoveTree(Get().m_workDir); });
}

}  // namespace fuzz
