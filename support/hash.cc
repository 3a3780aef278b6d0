// SHA256_Init/Update/Final are deprecated in OpenSSL 3 but remain the
// interface this library is written against; silence that here only. They
// compute the digest themselves, without OpenSSL's providers, so hashing
// neither needs nor touches any OpenSSL library context.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "extract_verify/hash.h"

#include <cstring>

IHash::~IHash() {}

NoHash::~NoHash() {}
void NoHash::update(const unsigned char*, unsigned int) {}
void NoHash::finish() {}
std::pair<const unsigned char*, uint32_t> NoHash::getHash() const { return {nullptr, 0}; }

Sha256::Sha256() {
  std::memset(&m_context, 0, sizeof m_context);
  std::memset(m_digest, 0, sizeof m_digest);
  SHA256_Init(&m_context);
}

Sha256::~Sha256() {}

void Sha256::update(const unsigned char* data, unsigned int length) {
  SHA256_Update(&m_context, data, length);
}

void Sha256::finish() { SHA256_Final(m_digest, &m_context); }

std::pair<const unsigned char*, uint32_t> Sha256::getHash() const {
  return {m_digest, static_cast<uint32_t>(sizeof m_digest)};
}

IHash* makeHash(const char* name) {
  if (name == nullptr) return nullptr;
  if (std::strcmp(name, "sha256") == 0) return new Sha256();
  if (std::strcmp(name, "none") == 0) return new NoHash();
  return nullptr;
}
