// Damaged packages: a valid package of several files cut short at many
// points, and damaged by a seeded loop of overwritten bytes, both in its
// compressed form and in its tar (compressed again, so that the damage
// reaches the archive reader past the gzip checks). No run may hang or
// crash, and none may report success unless every file it wrote matches the
// signed manifest, re-read from disk.
//
// EV_DAMAGE_ROUNDS sets the number of damaged packages (default 200).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include "extract/run_state.h"
#include "tests/extract/hostile_run.h"

namespace runtest {
namespace {

using package::Entry;
using testsupport::ReadFile;
using testsupport::SignedManifest;
using testsupport::WriteFile;

const size_t kTarBlock = 512;

// The headers of a tar (pax extended headers included), each with the size
// of the data after it, and where its end-of-archive blocks start.
struct TarLayout {
  struct Header {
    size_t at;
    size_t dataSize;
  };
  std::vector<Header> headers;
  size_t end = 0;

  // Whether a tar cut at `cut` leaves a header or an entry's data short.
  bool cutsAnEntry(size_t cut) const {
    for (const Header& header : headers) {
      if (cut > header.at && cut < header.at + kTarBlock + header.dataSize) return true;
    }
    return false;
  }
};

TarLayout Layout(const std::string& tar) {
  TarLayout layout;
  size_t at = 0;
  while (at + kTarBlock <= tar.size() && tar[at] != '\0') {
    const size_t size = std::strtoull(tar.substr(at + 124, 12).c_str(), nullptr, 8);
    layout.headers.push_back({at, size});
    at += kTarBlock + (size + kTarBlock - 1) / kTarBlock * kTarBlock;
  }
  layout.end = at;
  return layout;
}

class DamagedPackageTest : public HostileRunTest {
 protected:
  DamagedPackageTest()
      : m_entries({SignedManifest(), Entry::File("readme.txt", "read me\n"),
                   Entry::Generated("app.bin", 200000, 21, true),
                   Entry::Generated("data.bin", 70000, 22), Entry::File("tiny", "t")}),
        m_package(Build(m_entries)),
        m_good(ReadFile(m_package.path)),
        m_tar(Gunzip(m_good)),
        m_digests(ManifestDigests(m_entries)) {}

  // One bounded run over `bytes`; returns its status.
  _KALU_Error RunOver(const std::string& bytes, const std::string& context) {
    WriteFile(m_package.path, bytes);
    ClearDestination();
    RunResult run = BoundedRun(m_package.path);
    ExpectSafeOutcome(run, m_digests, m_package.manifestText, context);
    ++m_outcomes[run.status];
    return run.status;
  }

  void PrintOutcomes(const char* what) const {
    printf("%s:", what);
    for (const auto& outcome : m_outcomes) {
      printf(" %s x%d", CKALUStatus::EnumToStr(outcome.first), outcome.second);
    }
    printf("\n");
  }

  std::vector<Entry> m_entries;
  testsupport::BuiltPackage m_package;
  const std::string m_good;
  const std::string m_tar;
  const Digests m_digests;
  std::map<_KALU_Error, int> m_outcomes;
};

// The gzip trailer is checked too: even a package missing only its last
// byte fails.
TEST_F(DamagedPackageTest, CompressedPackageCutAnywhereFails) {
  std::set<size_t> cuts;
  for (size_t at = 0; at <= 12; ++at) cuts.insert(at);                   // gzip header
  for (size_t at = 16; at < 1600; at += 97) cuts.insert(at);             // Version.der
  for (size_t i = 1; i < 40; ++i) cuts.insert(m_good.size() * i / 40);   // the files
  for (size_t back = 1; back <= 24; ++back) cuts.insert(m_good.size() - back);  // end, trailer

  for (size_t cut : cuts) {
    const _KALU_Error status = RunOver(m_good.substr(0, cut), "cut at " + std::to_string(cut));
    EXPECT_EQ(status, PKG_ERR03) << "cut at " << cut;
  }
  PrintOutcomes("compressed package cut short");
}

TEST_F(DamagedPackageTest, TarCutAnywhereFailsUnlessOnlyItsEndBlocksAreMissing) {
  const TarLayout layout = Layout(m_tar);
  ASSERT_GE(layout.headers.size(), 5u);
  std::set<size_t> cuts;
  for (const TarLayout::Header& header : layout.headers) {
    // At the header, inside it, at its data, inside the data and its padding.
    for (size_t offset : {size_t{0}, size_t{1}, size_t{100}, size_t{511}, size_t{512},
                          kTarBlock + header.dataSize / 2, kTarBlock + header.dataSize}) {
      cuts.insert(header.at + offset);
    }
  }
  for (size_t offset : {size_t{1}, size_t{511}, size_t{512}, size_t{1023}}) {
    cuts.insert(layout.end + offset);  // inside the end-of-archive blocks
  }

  for (size_t cut : cuts) {
    const _KALU_Error status =
        RunOver(package::GzipCompress(m_tar.substr(0, cut)), "tar cut at " + std::to_string(cut));
    if (layout.cutsAnEntry(cut)) {
      EXPECT_NE(status, KALU_NO_ERR) << "tar cut at " << cut;
    }
  }
  PrintOutcomes("tar cut short");
}

TEST_F(DamagedPackageTest, SeededDamageNeverPassesForTheSignedFiles) {
  const int rounds = RoundsFromEnvironment("EV_DAMAGE_ROUNDS", 200);
  const TarLayout layout = Layout(m_tar);
  std::mt19937_64 random(0x5eed);
  auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };

  for (int round = 0; round < rounds; ++round) {
    // Even rounds damage the compressed bytes, odd rounds the tar, half the
    // time inside a header, where names, sizes and types live.
    const bool inTar = round % 2 == 1;
    std::string bytes = inTar ? m_tar : m_good;
    const int damages = 1 + static_cast<int>(below(4));
    for (int i = 0; i < damages; ++i) {
      size_t at = below(bytes.size());
      if (inTar && random() % 2 == 0) {
        at = layout.headers[below(layout.headers.size())].at + below(kTarBlock);
      }
      switch (below(3)) {
        case 0: bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8))); break;
        case 1: bytes[at] = static_cast<char>(random()); break;
        default:
          for (size_t n = 2 + below(15); n > 0 && at < bytes.size(); --n, ++at) {
            bytes[at] = static_cast<char>(random());
          }
      }
    }
    if (inTar) bytes = package::GzipCompress(bytes);
    RunOver(bytes, "damage round " + std::to_string(round));
    if (HasFailure()) break;  // one reported round is enough to go on with
  }
  PrintOutcomes("damaged packages");
}

}  // namespace
}  // namespace runtest
