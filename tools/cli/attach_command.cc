// extract-verify attach: the signed package made from an unsigned one (pack
// --unsigned) and a signature made elsewhere, once the signature is shown
// to be one the extractor accepts for exactly that package.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "authoring/package/package_writer.h"
#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/manifest_verify.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/package_check.h"
#include "tools/cli/signing.h"

namespace cli {

namespace {

const char kFooter[] =
    "PACKAGE is an unsigned package written by pack --unsigned: its first entry is\n"
    "the manifest Version.inf. SIGNATURE is PKCS#7 signed data in DER over that\n"
    "manifest, made elsewhere, carrying the signer's certificate and no other.\n"
    "Before anything is written, the signature must verify against CERT as the\n"
    "extractor verifies it (in UTC), its content must be the package's manifest\n"
    "byte for byte, and the manifest must still describe every file of the\n"
    "package. The signed package, Version.der first and the files as they are, is\n"
    "written under a temporary name and renamed when complete; an existing output\n"
    "is kept unless --force is given.";

struct Options {
  std::string signature;
  std::string trust;
  std::string out;
  bool force = false;
  std::string package;
};

std::vector<unsigned char> ReadSignature(const std::string& path) {
  CheckReadableFile(path, "signature file");
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                    std::istreambuf_iterator<char>());
}

// The unsigned package's entries, its manifest first.
ArchiveScan ScanUnsigned(const std::string& package) {
  ArchiveScan scan = ScanArchive(package);
  if (scan.entries.empty() || scan.entries.front().name != ev::kManifestFileName) {
    throw PackRefused(package + " is not an unsigned package: its first entry is not " +
                      ev::kManifestFileName);
  }
  return scan;
}

// The first thing that keeps the signed package from extracting: the
// findings of its entries, Version.der in place of the manifest.
std::string FirstFinding(ArchiveScan scan, const std::vector<unsigned char>& der,
                         const EV_Version_TPN& manifest) {
  ScannedEntry& signedManifest = scan.entries.front();
  signedManifest.name = ev::kSignedManifestName;
  signedManifest.declaredSize = static_cast<int64_t>(der.size());
  signedManifest.bytes = der.size();
  const PackageFindings findings = CheckAgainstManifest(scan, manifest.m_vecFileInfo);
  for (const auto* list :
       {&findings.refused, &findings.notInManifest, &findings.mismatched, &findings.missing}) {
    if (!list->empty()) return list->front();
  }
  return "";
}

void CheckSignatureFitsPackage(const Options& options, const std::vector<unsigned char>& der,
                               const ArchiveScan& scan) {
  CheckSignedManifestSize(der.size());
  const Verification verification = VerifySignedManifest(der, options.trust);
  if (!verification.signatureVerified) {
    throw PackRefused("the signature in " + options.signature + " does not verify against " +
                      options.trust + ": " + WhyNotVerified(verification));
  }
  const ScannedEntry& manifest = scan.entries.front();
  if (verification.manifestText.size() != manifest.bytes ||
      package::Sha256Hex(verification.manifestText) != manifest.sha256) {
    throw PackRefused("the signature in " + options.signature +
                      " signs other content than the manifest of " + options.package);
  }
  if (verification.status != KALU_NO_ERR) {
    throw PackRefused("the manifest of " + options.package + " does not parse as the extractor " +
                      "reads it: " + WhyNotVerified(verification));
  }
  const std::string finding = FirstFinding(scan, der, verification.manifest);
  if (!finding.empty()) {
    throw PackRefused("the manifest of " + options.package +
                      " no longer describes its files: " + finding);
  }
}

int RunAttach(const Options& options) {
  UseVerificationTimeZone(false);
  CheckReadableFile(options.package, "package");
  CheckCertificateFile(options.trust);
  const std::vector<unsigned char> der = ReadSignature(options.signature);
  CheckSignatureFitsPackage(options, der, ScanUnsigned(options.package));
  WriteSignedCopy(options.package, ev::kManifestFileName, der, options.out, options.force,
                  options.trust, options.package + " with the signature of " + options.signature);
  return kExitSuccess;
}

}  // namespace

Command AddAttachCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      tool.add_subcommand("attach", "sign an unsigned package with a signature made elsewhere");
  command->footer(kFooter);
  command
      ->add_option("--signature", options->signature,
                   "PKCS#7 signed data in DER over the package's manifest")
      ->required()
      ->type_name("SIGNATURE");
  command->add_option("--trust", options->trust, "PEM file of the trusted certificates")
      ->required()
      ->type_name("CERT");
  command->add_option("--out", options->out, "the signed package to write")
      ->required()
      ->type_name("PACKAGE");
  command->add_flag("--force", options->force, "replace an existing output package");
  AddVerboseFlag(command);
  command->add_option("PACKAGE", options->package, "the unsigned package")
      ->required()
      ->type_name("");
  return {command, [options] { return RunAttach(*options); }};
}

}  // namespace cli
