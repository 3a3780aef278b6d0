// Signed update packages built at test time, for end-to-end runs and tools.
//
// TestSigner makes a root CA and a signer issued by it (fresh keys each time)
// and writes the root into the certificate file of the runs. BuildSignedPackage
// writes a gzip tar of the given entries in the given order; an entry named
// exactly "Version.der" with no data stands for the signed manifest, which
// lists every other regular entry with its digest and size. PackageOptions
// make hostile packages on purpose. Everything throws on failure; any thread
// may build packages with its own signer.
#ifndef TESTS_TESTSUPPORT_SIGNED_PACKAGE_H_
#define TESTS_TESTSUPPORT_SIGNED_PACKAGE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "authoring/package/package_writer.h"
#include "authoring/pki/pki.h"

namespace testsupport {

class TestSigner {
 public:
  explicit TestSigner(std::string certFile);  // writes the root there
  const std::string& certFile() const { return m_certFile; }
  const pki::Identity& root() const { return m_root; }
  const pki::Identity& signer() const { return m_signer; }
  // PKCS#7 signed data (DER) over `content`, carrying the signer only.
  std::string Sign(const std::string& content) const;

 private:
  pki::Identity m_root;
  pki::Identity m_signer;
  std::string m_certFile;
};

struct PackageOptions {
  std::set<std::string> leftOutOfManifest;
  std::map<std::string, std::string> hashOverrides;  // name -> hash value text
  std::optional<std::string> manifestText;           // signed instead of the generated text
  std::optional<std::string> versionDer;             // stored instead of the signed manifest
  uint64_t trailingBytes = 0;                        // pseudo-random bytes after the gzip stream
  // Changes the uncompressed tar before it is compressed (headers that lie).
  std::function<void(std::string* tar)> editTar = nullptr;
};

struct BuiltPackage {
  std::string path;
  std::string manifestText;  // the text that was signed
  uint64_t size = 0;         // of the package file
};

BuiltPackage BuildSignedPackage(const TestSigner& signer, const std::string& path,
                                std::vector<package::Entry> entries,
                                const PackageOptions& options = PackageOptions());

// Replaces the extended key usage of `cert` by `usage` ("codeSigning"...)
// and signs it again with `issuerKey`.
void SetExtendedKeyUsage(X509* cert, const char* usage, EVP_PKEY* issuerKey);

// The placeholder of the signed manifest in an entry list.
package::Entry SignedManifest();

// Name -> lower-case hex SHA-256 of the regular entries of `entries` that the
// signed manifest lists (placeholder, special and left-out entries aside).
std::map<std::string, std::string> ManifestDigests(const std::vector<package::Entry>& entries,
                                                   const PackageOptions& options = {});

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_SIGNED_PACKAGE_H_
