// Builds a package that the extractor accepts, from files on disk: the
// manifest Version.inf (header values, then each file's name, SHA-256 and
// size), signed into Version.der, and a gzip tar holding Version.der first
// and then every file under its base name, with no directory entries.
//
// Inputs that the extractor would refuse or mishandle are refused here
// instead, before anything is written, with a message that says why.
// Shared by `pack` and `demo`. Main thread only.
#ifndef TOOLS_CLI_PACKAGE_BUILDER_H_
#define TOOLS_CLI_PACKAGE_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "authoring/package/manifest_text.h"
#include "authoring/package/package_writer.h"
#include "authoring/pki/pki.h"
#include "tools/cli/options.h"

namespace cli {

// Header values from "Key=Value" texts, in order. Throws UsageError for a
// text without '=', for a key that the manifest's reader would not see as
// given (empty, blank at either end, starting a comment or a section, with
// a line break), for a key of the file list (File<n>, File<n> Hash Value,
// File<n> Size), for a key given twice and for a value with a line break.
package::ManifestHeader ParseHeaderSettings(const std::vector<std::string>& settings);

// How a package is written beyond its header and files.
struct PackStyle {
  int64_t entryTime = package::WriteOptions().entryTime;  // of every entry
  pki::SignedAttributes attributes = pki::SignedAttributes::kWithSigningTime;
};

struct PackResult {
  std::vector<package::ManifestFile> files;  // in package order
  std::string manifestText;                  // Version.inf, as signed
  size_t signedManifestBytes = 0;
  uint64_t packageBytes = 0;
};

// Writes the package at `output`. Without a `signer` its first entry is
// the manifest itself, Version.inf, to be signed elsewhere and attached.
// Throws PackRefused for inputs that the extractor would refuse (see the
// checks in the .cc), std::runtime_error (pki::Error included) when
// reading, signing or writing fails; a partly written package is removed.
// `onData` is told of every block of file data hashed and then written
// (each file's size counts twice).
PackResult BuildPackage(const package::ManifestHeader& header,
                        const std::vector<std::string>& files, const std::string& output,
                        const pki::Identity* signer, const PackStyle& style = PackStyle(),
                        const package::DataObserver& onData = package::DataObserver());

// Version.der over `manifestText`; throws PackRefused when it is larger than
// the extractor verifies at once.
std::vector<unsigned char> SignManifest(
    const std::string& manifestText, const pki::Identity& signer,
    pki::SignedAttributes attributes = pki::SignedAttributes::kWithSigningTime);

// Throws PackRefused when a signed manifest of `bytes` is larger than the
// extractor verifies at once.
void CheckSignedManifestSize(size_t bytes);

}  // namespace cli

#endif  // TOOLS_CLI_PACKAGE_BUILDER_H_
