// Digest interface of the hash-and-write pipeline.
//
// makeHash("sha256") gives a Sha256 over OpenSSL's SHA-256, makeHash("none")
// a NoHash that computes nothing; the caller owns the result and destroys it
// through IHash. A hash object is used by one thread at a time: update once
// per chunk in byte order, finish once, then getHash any number of times.
#ifndef EXTRACT_VERIFY_HASH_H_
#define EXTRACT_VERIFY_HASH_H_

#include <openssl/sha.h>

#include <cstdint>
#include <utility>

#include "extract_verify/export.h"

class EV_EXPORT IHash {
 public:
  virtual ~IHash();
  virtual void update(const unsigned char* data, unsigned int length) = 0;
  virtual void finish() = 0;
  // The digest bytes (owned by the object) and their count.
  virtual std::pair<const unsigned char*, uint32_t> getHash() const = 0;
};

class EV_EXPORT NoHash : public IHash {
 public:
  ~NoHash() override;
  void update(const unsigned char* data, unsigned int length) override;
  void finish() override;
  std::pair<const unsigned char*, uint32_t> getHash() const override;
};

class EV_EXPORT Sha256 : public IHash {
 public:
  Sha256();
  ~Sha256() override;
  void update(const unsigned char* data, unsigned int length) override;
  void finish() override;
  // 32 zero bytes until finish() has run.
  std::pair<const unsigned char*, uint32_t> getHash() const override;

 private:
  SHA256_CTX m_context;
  unsigned char m_digest[SHA256_DIGEST_LENGTH];
};

// New hash object for "sha256" or "none" (exact, case-sensitive); null for
// any other name, a null one included.
EV_EXPORT IHash* makeHash(const char* name);

#endif  // EXTRACT_VERIFY_HASH_H_
