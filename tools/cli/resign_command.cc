// extract-verify resign: the same package with a new signature. Version.der
// is replaced by the same manifest signed anew; every other entry keeps its
// header and data bytes.
#include <string>
#include <vector>

#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/signature_check.h"
#include "tools/cli/signing.h"

namespace cli {

namespace {

const char kFooter[] =
    "Writes a copy of PACKAGE whose Version.der carries the same manifest signed with\n"
    "KEY and CERT; the other entries are copied unchanged, in order. The old\n"
    "signature is not checked. The signer is checked as by pack, and so is the\n"
    "result with --trust.";

struct Options {
  SigningOptions signing;
  std::string package;
};

int RunResign(const Options& options) {
  CheckReadableFile(options.package, "package");
  const pki::Identity signer = LoadCheckedSigner(options.signing);
  ArchiveScan scan = ScanArchive(options.package, true);
  if (scan.signedManifestPieces.empty()) {
    throw PackRefused(options.package + " has no Version.der entry");
  }
  const std::vector<unsigned char> der = SignManifest(
      SignedContent(scan.signedManifestPieces.front()), signer, options.signing.attributes());
  WriteSignedCopy(options.package, ev::kSignedManifestName, der, options.signing.out,
                  options.signing.force, options.signing.trust, options.package + " signed anew");
  return kExitSuccess;
}

}  // namespace

Command AddResignCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      tool.add_subcommand("resign", "replace the signature of a package, keeping its data");
  command->footer(kFooter);
  AddSigningOptions(command, &options->signing);
  AddVerboseFlag(command);
  command->add_option("PACKAGE", options->package, "the package to sign anew")
      ->required()
      ->type_name("");
  return {command, [options] { return RunResign(*options); }};
}

}  // namespace cli
