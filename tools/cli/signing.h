// What `pack` and `resign` share: the signer's options (--key, --cert,
// --pass, --out, --force, --trust, --no-signing-time), loading the signer
// and refusing one the extractor would refuse, the check of a written
// package against a trust file before it is kept, and the copy of a
// package with a new signed manifest (resign, attach). Main thread.
#ifndef TOOLS_CLI_SIGNING_H_
#define TOOLS_CLI_SIGNING_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "authoring/pki/pki.h"

namespace cli {

struct SigningOptions {
  std::string key;
  std::string cert;
  std::string pass;
  std::string out;
  std::string trust;
  bool force = false;
  bool noSigningTime = false;

  pki::SignedAttributes attributes() const {
    return noSigningTime ? pki::SignedAttributes::kNone : pki::SignedAttributes::kWithSigningTime;
  }
};

void AddSigningOptions(CLI::App* command, SigningOptions* options);

// The signer's key and certificate; throws InputError for unusable files
// and PackRefused for a certificate that cannot sign packages now.
pki::Identity LoadCheckedSigner(const SigningOptions& options);

// With a `trustFile`, verifies the package's signed manifest against it as
// the extractor would, in UTC; throws PackRefused when it does not verify.
void CheckAgainstTrust(const std::string& package, const std::string& trustFile);

// Writes `out` (kept unless `force`) as a copy of the package `from` whose
// entry `replaced` becomes Version.der holding `der`, the other entries
// unchanged; with a `trustFile`, only when the copy verifies against it.
// Then says so on standard output, `made` telling what the copy is.
void WriteSignedCopy(const std::string& from, const char* replaced,
                     const std::vector<unsigned char>& der, const std::string& out, bool force,
                     const std::string& trustFile, const std::string& made);

}  // namespace cli

#endif  // TOOLS_CLI_SIGNING_H_
