#include "tests/testsupport/signed_package.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "tests/testsupport/temp_dir.h"
#include "tools/package/manifest_text.h"

namespace testsupport {

namespace {

const char kManifestEntry[] = "Version.der";
const uint64_t kTrailingSeed = 0x7a11;

bool IsManifestPlaceholder(const package::Entry& entry) {
  return entry.name == kManifestEntry && entry.kind == package::EntryKind::kRegular &&
         entry.source == package::Entry::Source::kText && entry.text.empty();
}

std::string ManifestFor(const std::vector<package::Entry>& entries,
                        const PackageOptions& options) {
  std::vector<package::ManifestFile> files;
  for (const package::Entry& entry : entries) {
    if (entry.kind != package::EntryKind::kRegular || IsManifestPlaceholder(entry)) continue;
    if (options.leftOutOfManifest.count(entry.name) != 0) continue;
    std::string data = EntryData(entry);
    auto override = options.hashOverrides.find(entry.name);
    files.push_back({entry.name,
                     override != options.hashOverrides.end() ? override->second
                                                             : package::Sha256Hex(data),
                     data.size()});
  }
  const package::ManifestHeader header = {
      {"Torvan Part Number", "TP-4711"}, {"Version Number", "2.3.1"}, {"Type", "Full"},
      {"VIN", "WDB0000000TEST001"},      {"Start Date", "2024-01-01"},
      {"End Date", "2030-12-31"}};
  return package::ManifestText(header, files);
}

void AppendBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot append to " + path);
}

}  // namespace

TestSigner::TestSigner(std::string certFile) : m_certFile(std::move(certFile)) {
  m_root = pki::MakeRootCa("Update Test Root",
                           {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  m_signer = pki::MakeSigner("Update Test Signer",
                             {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)}, m_root);
  pki::WriteCertificatesPem(m_certFile, {m_root.cert.get()});
}

std::string TestSigner::Sign(const std::string& content) const {
  std::vector<unsigned char> der = pki::SignPkcs7Der(content, m_signer);
  return std::string(der.begin(), der.end());
}

package::Entry SignedManifest() { return package::Entry::File(kManifestEntry, ""); }

std::string EntryData(const package::Entry& entry) {
  switch (entry.source) {
    case package::Entry::Source::kText: return entry.text;
    case package::Entry::Source::kDiskFile: return ReadFile(entry.text);
    case package::Entry::Source::kGenerated:
      return package::GenerateContent(entry.generatedSize, entry.seed, entry.mixed);
  }
  return std::string();
}

BuiltPackage BuildSignedPackage(const TestSigner& signer, const std::string& path,
                                std::vector<package::Entry> entries,
                                const PackageOptions& options) {
  BuiltPackage built;
  built.path = path;
  built.manifestText = options.manifestText ? *options.manifestText : ManifestFor(entries, options);
  std::string der = options.versionDer ? *options.versionDer : signer.Sign(built.manifestText);
  for (package::Entry& entry : entries) {
    if (IsManifestPlaceholder(entry)) entry = package::Entry::File(kManifestEntry, der);
  }
  package::WritePackage(path, entries);
  if (options.trailingBytes > 0) {
    AppendBytes(path, package::GenerateContent(options.trailingBytes, kTrailingSeed));
  }
  built.size = std::filesystem::file_size(path);
  return built;
}

}  // namespace testsupport
