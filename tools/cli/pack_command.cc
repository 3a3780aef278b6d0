// extract-verify pack: builds a signed package from files.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/cli/commands.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/package_output.h"
#include "tools/cli/signing.h"
#include "tools/cli/text_format.h"

namespace cli {

namespace {

const char kFooter[] =
    "Builds PACKAGE, a gzip tar that the extractor accepts: Version.der (the manifest\n"
    "Version.inf signed with KEY, carrying the certificate CERT and no other) first,\n"
    "then every FILE under its base name, in the order given. The package is written\n"
    "under a temporary name and renamed when complete; an existing PACKAGE is kept\n"
    "unless --force is given.\n"
    "\n"
    "Refused with exit status 2: a --set without '=', with a key of the file list\n"
    "(File<n>, File<n> Hash Value, File<n> Size), with a key given twice, or with a\n"
    "key that the manifest's reader would not see as written.\n"
    "Refused with exit status 1: a signer whose key usage, extended key usage\n"
    "(emailProtection is required) or validity the extractor would refuse; a FILE\n"
    "that is missing, empty, a directory or not a regular file; a name containing\n"
    "\"..\"; a file named Version.der or Version.inf; two files with the same base\n"
    "name; a signed manifest larger than the 4096 bytes that the extractor reads;\n"
    "with --trust, a package whose signature does not verify against that file.";

struct Options {
  SigningOptions signing;
  std::vector<std::string> settings;
  std::vector<std::string> files;
};

uint64_t TotalSize(const std::vector<std::string>& files) {
  uint64_t total = 0;
  for (const std::string& file : files) {
    std::error_code error;
    uint64_t size = std::filesystem::file_size(file, error);
    if (!error) total += size;
  }
  return total;
}

int RunPack(const Options& options) {
  package::ManifestHeader header = ParseHeaderSettings(options.settings);
  try {
    const pki::Identity signer = LoadCheckedSigner(options.signing);
    PackageOutput output(options.signing.out, options.signing.force);
    ByteProgress progress(TotalSize(options.files), 2);
    PackResult result = BuildPackage(header, options.files, output.temporaryPath(), signer,
                                     [&progress](size_t bytes) { progress.add(bytes); });
    progress.finish();
    CheckAgainstTrust(output.temporaryPath(), options.signing.trust);
    output.commit();
    printf("%s: wrote %s (%s): Version.der of %zu bytes and %zu file(s)\n", kToolName,
           options.signing.out.c_str(), HumanSize(result.packageBytes).c_str(),
           result.signedManifestBytes, result.files.size());
    return kExitSuccess;
  } catch (const PackRefused& refused) {
    fprintf(stderr, "%s pack: refused: %s\n", kToolName, refused.what());
    return kExitFailure;
  }
}

}  // namespace

Command AddPackCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command = tool.add_subcommand("pack", "build a signed package from files");
  command->footer(kFooter);
  AddSigningOptions(command, &options->signing);
  command
      ->add_option("--set", options->settings,
                   "a header value of the manifest, repeatable, written in order before "
                   "the file list, e.g. --set \"Version Number=2.1\"")
      ->type_name("\"Key=Value\"")
      ->allow_extra_args(false);
  AddVerboseFlag(command);
  command->add_option("FILE", options->files, "the files to pack")->required()->type_name("");
  return {command, [options] { return RunPack(*options); }};
}

}  // namespace cli
