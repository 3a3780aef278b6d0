#include "tools/cli/manifest_verify.h"

#include <fstream>
#include <sstream>

#include "extract_verify/verify.h"
#include "tools/cli/signature_check.h"
#include "tools/cli/stdout_redirect.h"
#include "tools/cli/temp_directory.h"

namespace cli {

namespace {

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

Verification VerifySignedManifest(const std::vector<unsigned char>& der,
                                  const std::string& trustFile) {
  TempDirectory work("extract-verify-check");
  const std::string outputPath = work.file("library-output.txt");
  const std::string manifestPath = work.file("Version.inf");
  Verification result;
  {
    StdoutRedirect redirect = StdoutRedirect::ToFile(outputPath);
    result.status = static_cast<_KALU_Error>(EV_Unsign_using_date(
        manifestPath.c_str(), trustFile.c_str(), der.data(), static_cast<int>(der.size())));
    if (result.status == KALU_NO_ERR) {
      result.signatureVerified = true;
      result.status = result.manifest.KALU_Parse_INF(manifestPath.c_str());
    }
  }
  result.libraryOutput = ReadText(outputPath);
  if (result.signatureVerified) {
    result.manifestText = ReadText(manifestPath);
  } else {
    result.reason = ExplainSignatureFailure(der, trustFile);
  }
  return result;
}

std::string WhyNotVerified(const Verification& verification) {
  return verification.reason.empty() ? "status " + std::to_string(verification.status)
                                     : verification.reason;
}

}  // namespace cli
