// Writes a signed benchmark package, the certificate that verifies it and a
// sha256sum list of its files.
//
//   make_package [--files N] [--mib M] large|many|medium PACKAGE CERT SUMS
//
//   large   one image of M MiB (default 512) and three small files
//   many    N files (default 2000) of 4 to 64 KiB
//   medium  N files (default 16) of M MiB each (default 24)
//
// File contents are deterministic (same arguments, same bytes) and of mixed
// compressibility: random runs alternate with runs of text. Version.der comes
// first, as in a real package, so every digest is known before the data is
// written; when the manifest cannot list every file it comes last instead,
// since an entry that a manifest read before it does not list is refused. Keys are fresh on every call; CERT receives the root that the
// signer chains to. SUMS lists "<digest>  <name>" lines of every file for
// `sha256sum -c`. Standard output gets the number of files that the signed
// manifest lists and the number in the package: a manifest that must fit in
// 4096 bytes of Version.der lists a few dozen at most, so a package of more
// files extracts completely but fails its final check.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "authoring/package/manifest_text.h"
#include "authoring/package/package_writer.h"
#include "authoring/pki/pki.h"

namespace {

const uint64_t kKiB = 1024;
const uint64_t kMiB = 1024 * kKiB;

struct Options {
  std::string kind;
  std::string packagePath;
  std::string certPath;
  std::string sumsPath;
  long files = -1;  // -1: the kind's default
  long mib = -1;
};

// A small deterministic sequence for the file sizes of the "many" package.
uint64_t NextRandom(uint64_t& state) {
  state = state * 6364136223846793005ull + 1442695040888963407ull;
  return state >> 33;
}

std::string NumberedName(const char* prefix, long number, const char* suffix) {
  char name[64];
  snprintf(name, sizeof name, "%s%04ld%s", prefix, number, suffix);
  return name;
}

std::vector<package::Entry> Contents(const Options& options) {
  std::vector<package::Entry> entries;
  if (options.kind == "large") {
    uint64_t image = static_cast<uint64_t>(options.mib < 0 ? 512 : options.mib) * kMiB;
    entries.push_back(package::Entry::Generated("system.img", image, 1, true));
    entries.push_back(package::Entry::Generated("boot.cfg", 1234, 2, true));
    entries.push_back(package::Entry::Generated("update.sh", 5000, 3, true));
    entries.push_back(package::Entry::Generated("release.txt", 20000, 4, true));
  } else if (options.kind == "many") {
    long count = options.files < 0 ? 2000 : options.files;
    uint64_t state = 42;
    for (long i = 1; i <= count; ++i) {
      uint64_t size = 4 * kKiB + NextRandom(state) % (60 * kKiB + 1);
      entries.push_back(package::Entry::Generated(NumberedName("part_", i, ".bin"), size,
                                                  static_cast<uint64_t>(100 + i), true));
    }
  } else if (options.kind == "medium") {
    long count = options.files < 0 ? 16 : options.files;
    uint64_t size = static_cast<uint64_t>(options.mib < 0 ? 24 : options.mib) * kMiB;
    for (long i = 1; i <= count; ++i) {
      entries.push_back(package::Entry::Generated(NumberedName("module_", i, ".bin"), size,
                                                  static_cast<uint64_t>(1000 + i), true));
    }
  }
  return entries;
}

std::vector<package::ManifestFile> ManifestFor(const std::vector<package::Entry>& entries) {
  std::vector<package::ManifestFile> files;
  for (const package::Entry& entry : entries) {
    files.push_back({entry.name, package::EntrySha256(entry), entry.generatedSize});
  }
  return files;
}

// A root valid 2020-2040 (written to `certPath`) and a signer valid
// 2021-2039 issued by it.
class Signer {
 public:
  explicit Signer(const std::string& certPath)
      : m_root(pki::MakeRootCa("Bench Root", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)})),
        m_signer(pki::MakeSigner("Bench Signer",
                                 {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)}, m_root)) {
    pki::WriteCertificatesPem(certPath, {m_root.cert.get()});
  }

  std::string sign(const std::string& content) const {
    std::vector<unsigned char> der = pki::SignPkcs7Der(content, m_signer);
    return std::string(der.begin(), der.end());
  }

 private:
  pki::Identity m_root;
  pki::Identity m_signer;
};

// The extractor reads Version.der in one piece of 4096 bytes, which holds a
// manifest of a few dozen files: the signed manifest lists the first files
// that fit, and the caller learns how many did.
std::string SignedManifest(const Signer& signer, const std::vector<package::ManifestFile>& files,
                           size_t* listed) {
  const package::ManifestHeader header = {
      {"Torvan Part Number", "TP-BENCH"}, {"Version Number", "1.0.0"},  {"Type", "Full"},
      {"VIN", "WDB0000000BENCH01"},       {"Start Date", "2024-01-01"}, {"End Date", "2030-12-31"}};
  const size_t kLimit = 4096;
  size_t count = files.size();
  for (;;) {
    std::vector<package::ManifestFile> first(files.begin(), files.begin() + count);
    std::string der = signer.sign(package::ManifestText(header, first));
    if (der.size() <= kLimit || count == 0) {
      *listed = count;
      return der;
    }
    // Shrink in proportion to the excess, at least by one file.
    size_t fit = count * kLimit / der.size();
    count = fit < count ? fit : count - 1;
  }
}

void WriteSums(const std::string& path, const std::vector<package::ManifestFile>& files) {
  std::ofstream out(path);
  for (const package::ManifestFile& file : files) out << file.sha256 << "  " << file.name << "\n";
  if (!out) throw std::runtime_error("cannot write " + path);
}

// Prints "<files listed in the manifest> <files in the package>".
void Build(const Options& options) {
  std::vector<package::Entry> contents = Contents(options);
  std::vector<package::ManifestFile> files = ManifestFor(contents);
  Signer signer(options.certPath);
  size_t listed = 0;
  std::string der = SignedManifest(signer, files, &listed);

  std::vector<package::Entry> entries = contents;
  const bool manifestFirst = listed == files.size();
  entries.insert(manifestFirst ? entries.begin() : entries.end(),
                 package::Entry::File("Version.der", der));
  std::vector<package::WrittenEntry> written = package::WritePackage(options.packagePath, entries);
  for (size_t i = 0; i < files.size(); ++i) {
    if (written[i + (manifestFirst ? 1 : 0)].sha256 != files[i].sha256) {
      throw std::runtime_error("digest of " + files[i].name + " changed while writing");
    }
  }
  WriteSums(options.sumsPath, files);
  printf("%zu %zu\n", listed, files.size());
}

bool ParseNumber(const char* text, long* value) {
  char* end = nullptr;
  *value = std::strtol(text, &end, 10);
  return end != text && *end == '\0' && *value > 0;
}

bool ParseArguments(int argc, char** argv, Options* options) {
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--files") == 0 && i + 1 < argc) {
      if (!ParseNumber(argv[++i], &options->files)) return false;
    } else if (std::strcmp(argv[i], "--mib") == 0 && i + 1 < argc) {
      if (!ParseNumber(argv[++i], &options->mib)) return false;
    } else {
      positional.push_back(argv[i]);
    }
  }
  if (positional.size() != 4) return false;
  options->kind = positional[0];
  options->packagePath = positional[1];
  options->certPath = positional[2];
  options->sumsPath = positional[3];
  return options->kind == "large" || options->kind == "many" || options->kind == "medium";
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseArguments(argc, argv, &options)) {
    fprintf(stderr, "usage: %s [--files N] [--mib M] large|many|medium PACKAGE CERT SUMS\n",
            argv[0]);
    return 2;
  }
  try {
    Build(options);
  } catch (const std::exception& error) {
    fprintf(stderr, "make_package: %s\n", error.what());
    return 1;
  }
  return 0;
}
