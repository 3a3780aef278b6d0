#include "tools/cli/signing.h"

#include <cstdio>
#include <filesystem>

#include "authoring/package/package_writer.h"
#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/manifest_verify.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/package_output.h"
#include "tools/cli/signature_check.h"

namespace cli {

void AddSigningOptions(CLI::App* command, SigningOptions* options) {
  command
      ->add_option("--key", options->key,
                   "PEM private key of the signer, or the pkcs11: URI of a key in a token")
      ->required()
      ->type_name("KEY");
  command
      ->add_option("--cert", options->cert,
                   "PEM certificate of the signer (the first one in the file), or the "
                   "pkcs11: URI of a certificate in a token")
      ->required()
      ->type_name("CERT");
  command
      ->add_option("--pass", options->pass,
                   "pass phrase of an encrypted key, or PIN of a token: file:PATH (its first "
                   "line) or env:NAME")
      ->type_name("SOURCE");
  command->add_option("--out", options->out, "the package to write")
      ->required()
      ->type_name("PACKAGE");
  command->add_flag("--force", options->force, "replace an existing output package");
  command
      ->add_option("--trust", options->trust,
                   "verify the written package against these trusted certificates before "
                   "keeping it")
      ->type_name("CERT");
  command->add_flag("--no-signing-time", options->noSigningTime,
                    "sign without signed attributes, so without the signing time: with an RSA "
                    "key the same manifest then gives the same Version.der");
}

pki::Identity LoadCheckedSigner(const SigningOptions& options) {
  if (!options.trust.empty()) CheckCertificateFile(options.trust);
  pki::Identity signer = LoadSigner(options.cert, options.key, options.pass);
  std::string refusal = SignerRefusal(signer.cert.get());
  if (refusal.empty() && !options.trust.empty()) {
    const std::string revocation = SignerRevocation(signer.cert.get(), options.trust);
    if (!revocation.empty()) refusal = "it was " + revocation;
  }
  if (!refusal.empty()) {
    throw PackRefused("the signer certificate in " + options.cert +
                      " cannot sign packages "
                      "that the extractor accepts: " +
                      refusal);
  }
  return signer;
}

void CheckAgainstTrust(const std::string& package, const std::string& trustFile) {
  if (trustFile.empty()) return;
  UseVerificationTimeZone(false);
  ArchiveScan scan = ScanArchive(package, true);
  Verification verification = VerifySignedManifest(scan.signedManifestPieces.at(0), trustFile);
  if (verification.status != KALU_NO_ERR) {
    throw PackRefused("the package does not verify against " + trustFile + ": " +
                      WhyNotVerified(verification));
  }
}

void WriteSignedCopy(const std::string& from, const char* replaced,
                     const std::vector<unsigned char>& der, const std::string& out, bool force,
                     const std::string& trustFile, const std::string& made) {
  PackageOutput output(out, force);
  ByteProgress progress(std::filesystem::file_size(from));
  package::CopyWithSignedManifest(from, output.temporaryPath(), replaced, der,
                                  [&progress](size_t bytes) { progress.add(bytes); });
  progress.finish();
  CheckAgainstTrust(output.temporaryPath(), trustFile);
  output.commit();
  printf("%s: wrote %s: %s (Version.der of %zu bytes)\n", kToolName, out.c_str(), made.c_str(),
         der.size());
}

}  // namespace cli
