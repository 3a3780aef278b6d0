#include "tests/testsupport/signed_package.h"

#include <openssl/x509v3.h>

#include <filesystem>
#include <utility>

#include "authoring/package/manifest_text.h"
#include "tests/testsupport/temp_dir.h"

namespace testsupport {

namespace {

bool IsManifestPlaceholder(const package::Entry& entry) {
  return entry.name == "Version.der" && entry.type == package::FileType::kRegular &&
         entry.source == package::Entry::Source::kText && entry.text.empty();
}

bool Listed(const package::Entry& entry, const PackageOptions& options) {
  return entry.type == package::FileType::kRegular && !IsManifestPlaceholder(entry) &&
         options.leftOutOfManifest.count(entry.name) == 0;
}

std::string ManifestFor(const std::vector<package::Entry>& entries, const PackageOptions& options) {
  std::vector<package::ManifestFile> files;
  for (const package::Entry& entry : entries) {
    if (!Listed(entry, options)) continue;
    auto override = options.hashOverrides.find(entry.name);
    files.push_back(
        {entry.name,
         override != options.hashOverrides.end() ? override->second : package::EntrySha256(entry),
         entry.source == package::Entry::Source::kGenerated ? entry.generatedSize
                                                            : entry.text.size()});
  }
  return package::ManifestText({{"Torvan Part Number", "TP-4711"},
                                {"Version Number", "2.3.1"},
                                {"Type", "Full"},
                                {"Start Date", "2024-01-01"}},
                               files);
}

}  // namespace

TestSigner::TestSigner(std::string certFile)
    : m_root(pki::MakeRootCa("Test Root", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)})),
      m_signer(pki::MakeSigner("Test Signer", {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)},
                               m_root)),
      m_certFile(std::move(certFile)) {
  pki::WriteCertificatesPem(m_certFile, {m_root.cert.get()});
}

std::string TestSigner::Sign(const std::string& content) const {
  std::vector<unsigned char> der = pki::SignPkcs7Der(content, m_signer);
  return std::string(der.begin(), der.end());
}

void SetExtendedKeyUsage(X509* cert, const char* usage, EVP_PKEY* issuerKey) {
  X509_EXTENSION_free(X509_delete_ext(cert, X509_get_ext_by_NID(cert, NID_ext_key_usage, -1)));
  X509_EXTENSION* extension = X509V3_EXT_nconf_nid(nullptr, nullptr, NID_ext_key_usage, usage);
  X509_add_ext(cert, extension, -1);
  X509_EXTENSION_free(extension);
  X509_sign(cert, issuerKey, EVP_sha256());
}

package::Entry SignedManifest() { return package::Entry::File("Version.der", ""); }

std::map<std::string, std::string> ManifestDigests(const std::vector<package::Entry>& entries,
                                                   const PackageOptions& options) {
  std::map<std::string, std::string> digests;
  for (const package::Entry& entry : entries) {
    if (Listed(entry, options)) digests.emplace(entry.name, package::EntrySha256(entry));
  }
  return digests;
}

BuiltPackage BuildSignedPackage(const TestSigner& signer, const std::string& path,
                                std::vector<package::Entry> entries,
                                const PackageOptions& options) {
  BuiltPackage built{path, options.manifestText.value_or(ManifestFor(entries, options))};
  const std::string der = options.versionDer.value_or(signer.Sign(built.manifestText));
  for (package::Entry& entry : entries) {
    if (IsManifestPlaceholder(entry)) entry = package::Entry::File("Version.der", der);
  }
  std::string tar =
      package::WritePackageToMemory(entries, {package::TarFormat::kPaxRestricted, false});
  if (options.editTar) options.editTar(&tar);
  WriteFile(path,
            package::GzipCompress(tar) + package::GenerateContent(options.trailingBytes, 0x7a11));
  built.size = std::filesystem::file_size(path);
  return built;
}

}  // namespace testsupport
