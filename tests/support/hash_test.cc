// SHA-256 and the no-hash object behind IHash, and the factory that picks one.
#include "support/hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string Hex(std::pair<const unsigned char*, uint32_t> digest) {
  std::string text;
  char pair[3];
  for (uint32_t i = 0; i < digest.second; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", digest.first[i]);
    text += pair;
  }
  return text;
}

const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string Sha256Hex(const std::string& message) {
  Sha256 hash;
  hash.update(Bytes(message), static_cast<unsigned int>(message.size()));
  hash.finish();
  return Hex(hash.getHash());
}

TEST(Sha256, MatchesTheStandardTestVectors) {
  Sha256 empty;
  empty.finish();
  EXPECT_EQ(Hex(empty.getHash()),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Sha256Hex(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, ChunkSizesDoNotChangeTheDigest) {
  std::string data(200000, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>((i * 131 + i / 977) & 0xff);
  const std::string whole = Sha256Hex(data);
  for (size_t chunk : {1u, 63u, 64u, 65u, 4096u, 32767u, 32768u}) {
    Sha256 hash;
    for (size_t at = 0; at < data.size(); at += chunk) {
      size_t length = std::min(chunk, data.size() - at);
      hash.update(Bytes(data) + at, static_cast<unsigned int>(length));
      hash.update(Bytes(data), 0);  // an empty chunk adds nothing
    }
    hash.finish();
    EXPECT_EQ(Hex(hash.getHash()), whole) << "chunks of " << chunk;
  }
}

TEST(Sha256, DigestIsZeroUntilFinishedAndStableAfter) {
  Sha256 hash;
  hash.update(Bytes("abc"), 3);
  std::pair<const unsigned char*, uint32_t> before = hash.getHash();
  EXPECT_EQ(Hex(before), std::string(64, '0'));
  hash.finish();
  std::pair<const unsigned char*, uint32_t> after = hash.getHash();
  EXPECT_EQ(after.first, before.first);  // the view points into the object
  EXPECT_EQ(after.second, 32u);
  EXPECT_EQ(Hex(after), Sha256Hex("abc"));
  EXPECT_EQ(Hex(hash.getHash()), Hex(after));
}

TEST(NoHash, YieldsAnEmptyDigest) {
  NoHash hash;
  hash.update(Bytes("abc"), 3);
  hash.finish();
  std::pair<const unsigned char*, uint32_t> digest = hash.getHash();
  EXPECT_EQ(digest.first, nullptr);
  EXPECT_EQ(digest.second, 0u);
  EXPECT_EQ(Hex(digest), "");
}

TEST(MakeHash, PicksByExactName) {
  std::unique_ptr<IHash> sha(makeHash("sha256"));
  ASSERT_NE(dynamic_cast<Sha256*>(sha.get()), nullptr);
  sha->update(Bytes("abc"), 3);
  sha->finish();
  EXPECT_EQ(Hex(sha->getHash()), Sha256Hex("abc"));

  std::unique_ptr<IHash> none(makeHash("none"));
  EXPECT_NE(dynamic_cast<NoHash*>(none.get()), nullptr);

  for (const char* name : {"SHA256", "sha-256", "sha256 ", "None", ""}) {
    EXPECT_EQ(std::unique_ptr<IHash>(makeHash(name)), nullptr) << '"' << name << '"';
  }
  EXPECT_EQ(makeHash(nullptr), nullptr);
}

}  // namespace
