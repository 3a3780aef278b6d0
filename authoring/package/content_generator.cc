#include <algorithm>
#include <cstring>

#include "authoring/package/package_writer.h"

namespace package {

namespace {

const char kText[] =
    "Head unit update payload: navigation maps, media codecs and configuration tables. ";
constexpr size_t kTextLength = sizeof kText - 1;

// SplitMix64's finaliser: a well-mixed 64-bit word for every (seed, index).
uint64_t Mix(uint64_t seed, uint64_t index) {
  uint64_t z = seed + (index + 1) * 0x9E3779B97F4A7C15ull;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

}  // namespace

ContentGenerator::ContentGenerator(uint64_t size, uint64_t seed, bool mixed)
    : m_size(size), m_seed(seed), m_mixed(mixed) {}

size_t ContentGenerator::read(unsigned char* out, size_t capacity) {
  size_t n = static_cast<size_t>(std::min<uint64_t>(capacity, remaining()));
  for (size_t done = 0; done < n;) {
    uint64_t at = m_position + done;
    size_t piece = std::min<size_t>(n - done, kRunLength - at % kRunLength);
    if (m_mixed && (at / kRunLength) % 2 == 1) {
      fillText(out + done, at, piece);
    } else {
      fillRandom(out + done, at, piece);
    }
    done += piece;
  }
  m_position += n;
  return n;
}

// Byte `at` is byte at % 8 (little-endian) of word at / 8, whatever the
// pieces the content is read in.
void ContentGenerator::fillRandom(unsigned char* out, uint64_t at, size_t length) const {
  while (length > 0) {
    uint64_t word = Mix(m_seed, at / 8);
    size_t first = static_cast<size_t>(at % 8);
    size_t take = std::min<size_t>(8 - first, length);
    for (size_t i = 0; i < take; ++i)
      out[i] = static_cast<unsigned char>(word >> (8 * (first + i)));
    out += take;
    at += take;
    length -= take;
  }
}

void ContentGenerator::fillText(unsigned char* out, uint64_t at, size_t length) {
  while (length > 0) {
    size_t first = static_cast<size_t>(at % kTextLength);
    size_t take = std::min(kTextLength - first, length);
    std::memcpy(out, kText + first, take);
    out += take;
    at += take;
    length -= take;
  }
}

std::string GenerateContent(uint64_t size, uint64_t seed, bool mixed) {
  std::string content(static_cast<size_t>(size), '\0');
  ContentGenerator generator(size, seed, mixed);
  generator.read(reinterpret_cast<unsigned char*>(&content[0]), content.size());
  return content;
}

}  // namespace package
