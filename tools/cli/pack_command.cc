// extract-verify pack: builds a signed package from files, or an unsigned
// one with the manifest to be signed elsewhere.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
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
    "with --trust, a package whose signature does not verify against that file.\n"
    "\n"
    "With --mtime or SOURCE_DATE_EPOCH (seconds since 1970) the package is\n"
    "reproducible: the files go in the byte order of their names and every entry\n"
    "has that time, so two packs of the same files give the same bytes but for\n"
    "Version.der (the same bytes too with an RSA key and --no-signing-time).\n"
    "With --unsigned MANIFEST no key is needed: the package's first entry is the\n"
    "manifest Version.inf, also written to MANIFEST to be signed elsewhere; attach\n"
    "then makes the signed package.";

struct Options {
  SigningOptions signing;
  std::vector<std::string> settings;
  std::vector<std::string> files;
  std::string mtime;
  std::string manifestToSign;  // --unsigned
};

int64_t EpochSeconds(const std::string& text, const std::string& what) {
  char* end = nullptr;
  errno = 0;
  const long long seconds = strtoll(text.c_str(), &end, 10);
  if (*end != '\0' || errno != 0 || seconds < 0 || seconds > std::numeric_limits<time_t>::max()) {
    throw UsageError(what + " is not a whole number of seconds since 1970");
  }
  return seconds;
}

// The time of every entry of a reproducible package: --mtime, else
// SOURCE_DATE_EPOCH when set; none for an ordinary package.
std::optional<int64_t> ReproducibleTime(const std::string& mtime) {
  if (!mtime.empty()) return EpochSeconds(mtime, "--mtime " + mtime);
  const char* epoch = getenv("SOURCE_DATE_EPOCH");
  if (epoch == nullptr || *epoch == '\0') return std::nullopt;
  return EpochSeconds(epoch, std::string("SOURCE_DATE_EPOCH=") + epoch);
}

// The order of the files no longer depends on how they were named on the
// command line (a shell's glob, a build system's list).
void SortByPackedName(std::vector<std::string>& files) {
  std::stable_sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
    return std::filesystem::path(a).filename().string() <
           std::filesystem::path(b).filename().string();
  });
}

void CheckManifestOutput(const Options& options) {
  std::error_code error;
  if (std::filesystem::exists(options.manifestToSign, error) && !options.signing.force) {
    throw InputError(options.manifestToSign + " exists; give --force to replace it");
  }
}

void WriteManifestToSign(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw InputError("cannot write the manifest to " + path);
}

uint64_t TotalSize(const std::vector<std::string>& files) {
  uint64_t total = 0;
  for (const std::string& file : files) {
    std::error_code error;
    uint64_t size = std::filesystem::file_size(file, error);
    if (!error) total += size;
  }
  return total;
}

void ReportWritten(const Options& options, const PackResult& result) {
  const std::string written = options.signing.out + " (" + HumanSize(result.packageBytes) + ")";
  if (options.manifestToSign.empty()) {
    printf("%s: wrote %s: Version.der of %zu bytes and %zu file(s)\n", kToolName, written.c_str(),
           result.signedManifestBytes, result.files.size());
  } else {
    printf("%s: wrote %s, unsigned, with %zu file(s); sign %s and attach the signature\n",
           kToolName, written.c_str(), result.files.size(), options.manifestToSign.c_str());
  }
}

int RunPack(const Options& options) {
  package::ManifestHeader header = ParseHeaderSettings(options.settings);
  const bool signing = options.manifestToSign.empty();
  if (signing && (options.signing.key.empty() || options.signing.cert.empty())) {
    throw UsageError("pack needs --key and --cert, or --unsigned MANIFEST");
  }
  std::vector<std::string> files = options.files;
  PackStyle style;
  style.attributes = options.signing.attributes();
  if (const std::optional<int64_t> time = ReproducibleTime(options.mtime)) {
    style.entryTime = *time;
    SortByPackedName(files);
  }
  std::optional<pki::Identity> signer;
  if (signing) signer = LoadCheckedSigner(options.signing);
  if (!signing) CheckManifestOutput(options);
  PackageOutput output(options.signing.out, options.signing.force);
  ByteProgress progress(TotalSize(files), 2);
  PackResult result =
      BuildPackage(header, files, output.temporaryPath(), signer ? &*signer : nullptr, style,
                   [&progress](size_t bytes) { progress.add(bytes); });
  progress.finish();
  if (signing) {
    CheckAgainstTrust(output.temporaryPath(), options.signing.trust);
  } else {
    WriteManifestToSign(options.manifestToSign, result.manifestText);
  }
  output.commit();
  ReportWritten(options, result);
  return kExitSuccess;
}

}  // namespace

Command AddPackCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command = tool.add_subcommand("pack", "build a signed package from files");
  command->footer(kFooter);
  AddSigningOptions(command, &options->signing);
  CLI::Option* unsignedOption =
      command
          ->add_option("--unsigned", options->manifestToSign,
                       "write the package unsigned, the manifest Version.inf as its first "
                       "entry, and the manifest to sign into MANIFEST (see attach)")
          ->type_name("MANIFEST");
  for (const char* name : {"--key", "--cert", "--pass", "--trust", "--no-signing-time"}) {
    unsignedOption->excludes(command->get_option(name));
  }
  command->get_option("--key")->required(false);
  command->get_option("--cert")->required(false);
  command
      ->add_option("--mtime", options->mtime,
                   "make the package reproducible, every entry with this time (seconds since "
                   "1970; default: SOURCE_DATE_EPOCH when set)")
      ->type_name("SECONDS");
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
