// extract-verify pack: builds a signed package from files.
#include <cstdio>
#include <string>
#include <vector>

#include "tools/cli/commands.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/text_format.h"

namespace cli {

namespace {

const char kUsage[] =
    "Usage: extract-verify pack --key KEY --cert CERT --out PACKAGE\n"
    "                           [--set \"Key=Value\" ...] FILE...\n"
    "\n"
    "Builds PACKAGE, a gzip tar that the extractor accepts: Version.der (the manifest\n"
    "Version.inf signed with KEY, carrying the certificate CERT and no other) first,\n"
    "then every FILE under its base name, in the order given.\n"
    "\n"
    "Options:\n"
    "  --key KEY           PEM private key of the signer\n"
    "  --cert CERT         PEM certificate of the signer (the first one in the file)\n"
    "  --out PACKAGE       the package to write\n"
    "  --set \"Key=Value\"   a header value of the manifest, repeatable, written in\n"
    "                      order before the file list, e.g. --set \"Version Number=2.1\"\n"
    "\n"
    "Refused with exit status 2: a --set without '=', with a key of the file list\n"
    "(File<n>, File<n> Hash Value, File<n> Size), with a key given twice, or with a\n"
    "key that the manifest's reader would not see as written.\n"
    "Refused with exit status 1: a FILE that is missing, empty, a directory or not a\n"
    "regular file; a name containing \"..\"; a file named Version.der or Version.inf;\n"
    "two files with the same base name; a signed manifest larger than the 4096 bytes\n"
    "that the extractor reads (too many files or too long names and values).\n";

const std::vector<OptionDef> kOptions = {{"key", OptionKind::kValue},
                                         {"cert", OptionKind::kValue},
                                         {"out", OptionKind::kValue},
                                         {"set", OptionKind::kRepeatedValue}};

int RunPack(const std::vector<std::string>& args) {
  ParsedOptions options = ParseOptions(args, kOptions);
  std::string key = options.required("key");
  std::string cert = options.required("cert");
  std::string output = options.required("out");
  if (options.positional.empty()) throw UsageError("expected FILE...");
  package::ManifestHeader header = ParseHeaderSettings(options.values("set"));

  try {
    pki::Identity signer = pki::LoadIdentity(cert, key);
    PackResult result = BuildPackage(header, options.positional, output, signer);
    printf("%s: wrote %s (%s): Version.der of %zu bytes and %zu file(s)\n", kToolName,
           output.c_str(), HumanSize(result.packageBytes).c_str(), result.signedManifestBytes,
           result.files.size());
    return kExitSuccess;
  } catch (const PackRefused& refused) {
    fprintf(stderr, "%s pack: refused: %s\n", kToolName, refused.what());
    return kExitFailure;
  }
}

}  // namespace

const Command kPackCommand = {"pack", "build a signed package from files", kUsage, RunPack};

}  // namespace cli
