#include "tools/cli/input_checks.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/openssl_owners.h"
#include "tools/cli/options.h"
#include "tools/cli/token_keys.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

std::string PassPhrase(const std::string& source) {
  if (source.compare(0, 5, "file:") == 0) {
    const std::string path = source.substr(5);
    CheckReadableFile(path, "pass phrase file");
    std::string text = ReadWholeFile(path);
    return text.substr(0, text.find_first_of("\r\n"));
  }
  if (source.compare(0, 4, "env:") == 0) {
    const char* value = getenv(source.c_str() + 4);
    if (value == nullptr) {
      throw InputError("the environment variable " + source.substr(4) +
                       " named by --pass is not set");
    }
    return value;
  }
  throw InputError("--pass " + source +
                   " names no pass phrase source (use file:PATH or "
                   "env:NAME)");
}

// The token's PIN comes from --pass as a key file's pass phrase does; a
// token never opens its keys without one.
std::string TokenPin(const std::string& uri, const std::string& passSource) {
  if (passSource.empty()) {
    throw InputError("the key " + uri +
                     " is in a token; give its PIN with --pass file:PATH or --pass env:NAME");
  }
  return PassPhrase(passSource);
}

// Hands OpenSSL the pass phrase instead of letting it ask a terminal.
int GivePassPhrase(char* buffer, int size, int, void* data) {
  const std::string& pass = *static_cast<const std::string*>(data);
  if (pass.empty() || pass.size() > static_cast<size_t>(size)) return -1;
  memcpy(buffer, pass.data(), pass.size());
  return static_cast<int>(pass.size());
}

pki::Key ReadPrivateKey(const std::string& path, const std::string& passSource) {
  CheckReadableFile(path, "key file");
  const std::string text = ReadWholeFile(path);
  if (!Contains(text, "PRIVATE KEY-----")) {
    if (Contains(text, "CERTIFICATE-----")) {
      throw InputError(path +
                       " holds a certificate, not a private key (give the signer's "
                       "key with --key and its certificate with --cert)");
    }
    throw InputError(path + " holds no PEM private key");
  }
  const bool encrypted = Contains(text, "ENCRYPTED");
  if (encrypted && passSource.empty()) {
    throw InputError("the key in " + path +
                     " is encrypted; give its pass phrase with --pass "
                     "file:PATH or --pass env:NAME");
  }
  std::string pass = encrypted ? PassPhrase(passSource) : std::string();
  ev::BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  pki::Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, GivePassPhrase, &pass));
  if (!key) {
    throw InputError(encrypted ? "the pass phrase does not decrypt the key in " + path
                               : "the private key in " + path + " cannot be read",
                     TakeOpenSslErrors());
  }
  return key;
}

}  // namespace

void CheckReadableFile(const std::string& path, const char* role) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error)
    throw InputError("cannot read the " + std::string(role) + " " + path + ": " + error.message());
  if (fs::is_directory(status)) {
    throw InputError("the " + std::string(role) + " " + path + " is a directory");
  }
  if (access(path.c_str(), R_OK) != 0) {
    throw InputError("cannot read the " + std::string(role) + " " + path + ": " + strerror(errno));
  }
}

void CheckCertificateFile(const std::string& path) {
  CheckReadableFile(path, "certificate file");
  try {
    if (!pki::ReadCertificatesPem(path).empty()) return;
  } catch (const pki::Error&) {
  }
  throw InputError("the certificate file " + path + " holds no PEM certificate",
                   TakeOpenSslErrors());
}

pki::Identity LoadSigner(const std::string& certPath, const std::string& keyPath,
                         const std::string& passSource) {
  pki::Identity signer;
  const bool certInToken = IsTokenUri(certPath), keyInToken = IsTokenUri(keyPath);
  if (certInToken) {
    signer.cert = LoadTokenCertificate(certPath);
  } else {
    CheckCertificateFile(certPath);
    signer.cert = std::move(pki::ReadCertificatesPem(certPath).front());
  }
  signer.key = keyInToken ? LoadTokenKey(keyPath, TokenPin(keyPath, passSource))
                          : ReadPrivateKey(keyPath, passSource);
  if (X509_check_private_key(signer.cert.get(), signer.key.get()) != 1) {
    throw InputError((keyInToken ? "the key " : "the key in ") + keyPath + " does not belong to " +
                         (certInToken ? "the certificate " : "the first certificate of ") +
                         certPath,
                     TakeOpenSslErrors());
  }
  return signer;
}

std::string TakeOpenSslErrors() {
  std::string lines;
  char text[256];
  while (unsigned long code = ERR_get_error()) {
    ERR_error_string_n(code, text, sizeof text);
    lines += std::string("  ") + text + "\n";
  }
  return lines;
}

}  // namespace cli
