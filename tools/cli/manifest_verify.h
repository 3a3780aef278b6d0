// The signature check of a package's Version.der as the extractor makes it
// (EV_Unsign_using_date into a temporary directory, then the manifest's
// parser), with the library's printed lines kept aside and, on failure, the
// cause in one sentence. Shared by `inspect`, `pack --trust` and `resign`.
// Main thread: it redirects standard output while the library runs.
#ifndef TOOLS_CLI_MANIFEST_VERIFY_H_
#define TOOLS_CLI_MANIFEST_VERIFY_H_

#include <string>
#include <vector>

#include "extract_verify/manifest.h"
#include "extract_verify/status.h"

namespace cli {

struct Verification {
  _KALU_Error status = SIGN_ERR01;
  bool signatureVerified = false;  // else `status` is that of the signature check
  std::string reason;              // why the signature does not verify, when known
  EV_Version_TPN manifest;
  std::string manifestText;  // the signed content, as verified
  std::string libraryOutput;
};

Verification VerifySignedManifest(const std::vector<unsigned char>& der,
                                  const std::string& trustFile);

// Why a signature did not verify: its reason, or else its status.
std::string WhyNotVerified(const Verification& verification);

}  // namespace cli

#endif  // TOOLS_CLI_MANIFEST_VERIFY_H_
