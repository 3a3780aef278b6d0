// extract-verify extract: one extraction run of a package into a directory.
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "extract/run_state.h"
#include "tools/cli/commands.h"
#include "tools/cli/options.h"
#include "tools/cli/run_extraction.h"
#include "tools/cli/status_text.h"

namespace cli {

namespace {

const char kUsage[] =
    "Usage: extract-verify extract --cert CERT [--only NAME | --exclude NAME] [--quiet]\n"
    "                              PACKAGE DEST\n"
    "\n"
    "Unpacks PACKAGE into the directory DEST (made when missing) in one run of the\n"
    "library: Version.der is verified against the trusted certificates in CERT, the\n"
    "signed manifest is written to DEST/Version.inf, and the SHA-256 of every\n"
    "written file is checked against it.\n"
    "\n"
    "Options:\n"
    "  --cert CERT      PEM file of the trusted certificates\n"
    "  --only NAME      extract only the entry NAME (and verify the manifest)\n"
    "  --exclude NAME   extract every entry but NAME\n"
    "  --quiet          hide the lines that the library prints on standard output\n"
    "\n"
    "On a terminal a progress line on standard error shows how much of the package\n"
    "has been read; Ctrl-C aborts the run. A failed run prints the status name and\n"
    "number on standard error and exits with 1; the library also writes the name\n"
    "to /tmp/extract_verify_error.txt.\n";

const std::vector<OptionDef> kOptions = {{"cert", OptionKind::kValue},
                                         {"only", OptionKind::kValue},
                                         {"exclude", OptionKind::kValue},
                                         {"quiet", OptionKind::kFlag}};

ExtractionRequest RequestFrom(const ParsedOptions& options) {
  ExpectPositional(options, 2, "PACKAGE DEST");
  if (options.has("only") && options.has("exclude")) {
    throw UsageError("--only and --exclude cannot be used together");
  }
  ExtractionRequest request;
  request.certificate = options.required("cert");
  request.package = options.positional[0];
  request.destination = options.positional[1];
  request.quiet = options.has("quiet");
  if (options.has("only") || options.has("exclude")) {
    request.selectsFile = true;
    request.exclude = options.has("exclude");
    request.fileName = options.value(request.exclude ? "exclude" : "only");
  }
  return request;
}

// The library writes into an existing directory only.
bool MakeDestination(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error && std::filesystem::is_directory(path, error)) return true;
  fprintf(stderr, "%s extract: %s is not a directory that can be made: %s\n", kToolName,
          path.c_str(), error ? error.message().c_str() : "a file is in the way");
  return false;
}

int RunExtract(const std::vector<std::string>& args) {
  ExtractionRequest request = RequestFrom(ParseOptions(args, kOptions));
  if (!MakeDestination(request.destination)) return kExitFailure;

  _KALU_Error status = RunExtraction(request);
  if (ExtractionWasInterrupted()) fprintf(stderr, "%s: interrupted\n", kToolName);
  if (status != KALU_NO_ERR) {
    ReportFailedStatus("extraction failed", status);
    return kExitFailure;
  }
  printf("%s: %zu file(s) extracted into %s and checked against the signed manifest\n",
         kToolName, g_hashResult.size(), request.destination.c_str());
  return kExitSuccess;
}

}  // namespace

const Command kExtractCommand = {"extract", "unpack a package, verifying it as the head unit does",
                                 kUsage, RunExtract};

}  // namespace cli
