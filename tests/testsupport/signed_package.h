// Signed update packages built at test time, for end-to-end runs.
//
// TestSigner makes a root CA and a signer issued by it (fresh keys each time)
// and writes the root into the certificate file of the run. BuildSignedPackage
// writes a gzip tar of the given entries in the given order; an entry named
// exactly "Version.der" with no data stands for the signed manifest, which
// lists every other regular entry with its digest and size. PackageOptions
// make hostile packages on purpose. Everything throws on failure.
#ifndef TESTS_TESTSUPPORT_SIGNED_PACKAGE_H_
#define TESTS_TESTSUPPORT_SIGNED_PACKAGE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/package/package_writer.h"
#include "tools/pki/pki.h"

namespace testsupport {

class TestSigner {
 public:
  // Writes the root certificate, the trust anchor of the runs, to `certFile`.
  explicit TestSigner(std::string certFile);

  const std::string& certFile() const { return m_certFile; }
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
  std::optional<std::string> manifestText;  // signed instead of the generated text
  std::optional<std::string> versionDer;    // stored instead of the signed manifest
  uint64_t trailingBytes = 0;               // pseudo-random bytes after the gzip stream
};

struct BuiltPackage {
  std::string path;
  std::string manifestText;  // the text that was signed
  uint64_t size = 0;         // of the package file
};

BuiltPackage BuildSignedPackage(const TestSigner& signer, const std::string& path,
                                std::vector<package::Entry> entries,
                                const PackageOptions& options = PackageOptions());

// The placeholder of the signed manifest in an entry list.
package::Entry SignedManifest();

// The bytes that a regular entry of a list stores.
std::string EntryData(const package::Entry& entry);

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_SIGNED_PACKAGE_H_
