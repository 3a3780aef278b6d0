// SHA-256 and the no-hash object behind IHash, and the factory that picks one.
#include "support/hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

namespace {

// The hex digest of `message` fed in pieces of `chunk` bytes, each followed
// by an empty piece, which adds nothing.
std::string Digest(IHash& hash, const std::string& message, size_t chunk = SIZE_MAX) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(message.data());
  for (size_t at = 0; at < message.size(); at += chunk) {
    hash.update(bytes + at, static_cast<unsigned int>(std::min(chunk, message.size() - at)));
    hash.update(bytes, 0);
  }
  hash.finish();
  std::string text;
  char pair[3];
  for (uint32_t i = 0; i < hash.getHash().second; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", hash.getHash().first[i]);
    text += pair;
  }
  return text;
}

TEST(Hash, Sha256MatchesTheStandardVectorsWhateverTheChunking) {
  const std::pair<std::string, const char*> vectors[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}};
  for (const auto& v : vectors) {
    for (size_t chunk : {size_t{1}, size_t{63}, size_t{64}, size_t{65}, size_t{32768}, SIZE_MAX}) {
      if (chunk == 1 && v.first.size() > 1000) continue;
      Sha256 hash;
      EXPECT_EQ(Digest(hash, v.first, chunk), v.second) << v.first.size() << " in " << chunk;
    }
  }
}

TEST(Hash, FactoryPicksByExactNameAndNoHashHasAnEmptyDigest) {
  std::unique_ptr<IHash> sha(makeHash("sha256"));
  ASSERT_NE(dynamic_cast<Sha256*>(sha.get()), nullptr);
  EXPECT_EQ(Digest(*sha, "abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  std::unique_ptr<IHash> none(makeHash("none"));
  ASSERT_NE(dynamic_cast<NoHash*>(none.get()), nullptr);
  EXPECT_EQ(Digest(*none, "abc"), "");
  for (const char* name : {"SHA256", "sha-256", "sha256 ", "None", ""}) {
    EXPECT_EQ(std::unique_ptr<IHash>(makeHash(name)), nullptr) << '"' << name << '"';
  }
  EXPECT_EQ(makeHash(nullptr), nullptr);
}

}  // namespace
