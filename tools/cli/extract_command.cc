// extract-verify extract: one extraction run of a package into a directory,
// with what the run's status alone does not say: a selected file that the
// package lacks, listed files the run did not write, the file a digest
// failure is about, and the unverified files a failed run leaves behind.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "extract_verify/extraction.h"
#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/extract_outcome.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/options.h"
#include "tools/cli/package_check.h"
#include "tools/cli/run_extraction.h"
#include "tools/cli/signature_check.h"
#include "tools/cli/status_text.h"
#include "tools/cli/stdout_redirect.h"

namespace cli {

namespace {

using Json = nlohmann::ordered_json;

const char kFooter[] =
    "Unpacks PACKAGE into the directory DEST (made when missing) in one run of the\n"
    "library: Version.der is verified against the trusted certificates in CERT, the\n"
    "signed manifest is written to DEST/Version.inf, and the SHA-256 of every\n"
    "written file is checked against it. Then the run is checked for completeness:\n"
    "a file the manifest lists (of those --only or --exclude select) that the run\n"
    "did not write is a warning, or an error with --strict.\n"
    "\n"
    "On a terminal a progress line on standard error shows how much of the package\n"
    "has been read; Ctrl-C aborts the run (exit status 130). A failed run prints the\n"
    "status name and number and the files it left unverified in DEST on standard\n"
    "error and exits with 1; the library also writes the name to\n"
    "/tmp/extract_verify_error.txt.";

struct Options {
  ExtractionRequest request;
  std::string only;
  std::string exclude;
  bool json = false;
  bool localTime = false;
  bool strict = false;
  bool allowIncomplete = false;
};

// The library writes into an existing directory only.
void MakeDestination(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error && std::filesystem::is_directory(path, error)) return;
  throw InputError("the destination " + path + " is not a directory that can be made: " +
                   (error ? error.message() : "a file is in the way"));
}

// The one sentence that says why the run failed, beyond its status.
// The first entry of the package that differs from the run's verified
// manifest: what a digest failure is about when the run refused the entry
// before writing it.
std::string FirstDifferingEntry(const std::string& package) {
  if (g_objKALU_Version_TPN == nullptr) return "";
  const PackageFindings findings =
      CheckAgainstManifest(ScanArchive(package), g_objKALU_Version_TPN->m_vecFileInfo);
  if (!findings.notInManifest.empty()) {
    return findings.notInManifest.front() + ": not listed in the signed manifest";
  }
  return findings.mismatched.empty() ? "" : findings.mismatched.front();
}

std::string ExplainStatus(const ExtractionRequest& request, _KALU_Error status) {
  if (status == SIGN_ERR02) {
    const std::string written = FirstMismatch();
    return written.empty() ? FirstDifferingEntry(request.package) : written;
  }
  if (status != SIGN_ERR01) return "";
  ArchiveScan scan = ScanArchive(request.package, true);
  if (scan.signedManifestPieces.empty()) return "";
  return ExplainSignatureFailure(scan.signedManifestPieces.front(), request.certificate);
}

// The one sentence that says why the run failed, beyond its status.
std::string FailureReason(const ExtractionRequest& request, _KALU_Error status) {
  try {
    return ExplainStatus(request, status);
  } catch (const std::exception&) {
    return "";  // the run's status says what the package's state is
  }
}

// The report's sentences on standard error, and the success line on
// standard output unless that carries the JSON report.
void PrintReport(const Json& report, bool json) {
  const std::string result = report["result"];
  const std::string destination = report["destination"];
  for (const Json& warning : report["warnings"]) {
    fprintf(stderr, "%s: warning: %s\n", kToolName, warning.get<std::string>().c_str());
  }
  if (result == "OK") {
    if (json) return;
    printf(
        "%s: %zu file(s) extracted into %s and checked against the signed manifest "
        "(signature checked in %s)\n",
        kToolName, report["files"].size(), destination.c_str(),
        report["timeZone"].get<std::string>().c_str());
    return;
  }
  if (report.contains("error")) {
    fprintf(stderr, "%s: %s\n", kToolName, report["error"].get<std::string>().c_str());
  }
  if (report.contains("reason")) {
    fprintf(stderr, "%s: %s\n", kToolName, report["reason"].get<std::string>().c_str());
  }
  const Json& left = report["unverifiedLeft"];
  if (!left.empty()) {
    fprintf(stderr, "%s: the failed run left %zu unverified file(s) in %s:\n", kToolName,
            left.size(), destination.c_str());
    for (const Json& file : left) fprintf(stderr, "  %s\n", file.get<std::string>().c_str());
  }
}

// The library's completeness check of the run. Its printed line stays off
// standard output when that is quiet or carries the JSON report.
bool RunWroteEveryListedFile(bool quiet) {
  std::optional<StdoutRedirect> silence;
  if (quiet) silence.emplace(StdoutRedirect::ToFile("/dev/null"));
  return CheckExtractionCompleteness() == KALU_NO_ERR;
}

// The files the run wrote; the manifest, once parsed, is the verified one.
std::vector<std::string> UnverifiedFiles(const DirectorySnapshot& before,
                                         const std::string& destination) {
  std::vector<std::string> files = ChangedFiles(before, destination);
  if (g_objKALU_Version_TPN == nullptr || g_objKALU_Version_TPN->m_vecFileInfo.empty()) {
    return files;
  }
  files.erase(std::remove(files.begin(), files.end(), "Version.inf"), files.end());
  return files;
}

// The run's findings; "result" is OK, FAILED or INTERRUPTED.
Json Examine(const Options& options, _KALU_Error status, const DirectorySnapshot& before) {
  const ExtractionRequest& request = options.request;
  Json report = {{"package", request.package},
                 {"destination", request.destination},
                 {"timeZone", ""},
                 {"status", CKALUStatus::EnumToStr(status)},
                 {"code", static_cast<int>(status)},
                 {"files", WrittenFiles()},
                 {"warnings", Json::array()}};
  bool failed = status != KALU_NO_ERR;
  if (!failed && request.selectsFile && !request.exclude &&
      g_hashResult.count(request.fileName) == 0) {
    report["error"] = "the package has no entry named " + request.fileName;
    failed = true;
  }
  if (!failed && !options.allowIncomplete && !RunWroteEveryListedFile(request.quiet)) {
    std::vector<std::string> missing = FilesMissingFromRun(request);
    if (missing.empty()) missing.push_back("a file");  // the library's line names it
    for (const std::string& name : missing) {
      const std::string text = "the package lacks " + name + ", listed in the signed manifest";
      if (options.strict && !report.contains("error")) report["error"] = text;
      report["warnings"].push_back(text);
    }
    failed = report.contains("error");
  }
  if (failed) {
    const std::string reason = FailureReason(request, status);
    if (!reason.empty()) report["reason"] = reason;
  }
  report["unverifiedLeft"] =
      failed ? UnverifiedFiles(before, request.destination) : std::vector<std::string>();
  report["result"] = ExtractionWasInterrupted() ? "INTERRUPTED" : failed ? "FAILED" : "OK";
  return report;
}

int RunExtract(Options& options) {
  const std::string zone = UseVerificationTimeZone(options.localTime);
  ExtractionRequest& request = options.request;
  CheckCertificateFile(request.certificate);
  CheckReadableFile(request.package, "package");
  MakeDestination(request.destination);
  if (!options.only.empty() || !options.exclude.empty()) {
    request.selectsFile = true;
    request.exclude = !options.exclude.empty();
    request.fileName = request.exclude ? options.exclude : options.only;
  }
  request.quiet = request.quiet || options.json;

  const DirectorySnapshot before = TakeSnapshot(request.destination);
  const _KALU_Error status = RunExtraction(request);
  Json report = Examine(options, status, before);
  report["timeZone"] = zone;
  if (report["result"] == "INTERRUPTED") fprintf(stderr, "%s: interrupted\n", kToolName);
  if (status != KALU_NO_ERR) {
    ReportFailedStatus("extraction failed", status, options.localTime);
  }
  if (options.json) printf("%s\n", report.dump(2).c_str());
  PrintReport(report, options.json);
  if (report["result"] == "INTERRUPTED") return kExitInterrupted;
  return report["result"] == "OK" ? kExitSuccess : kExitFailure;
}

}  // namespace

Command AddExtractCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      tool.add_subcommand("extract", "unpack a package, verifying it as the head unit does");
  command->footer(kFooter);
  command
      ->add_option("--cert", options->request.certificate, "PEM file of the trusted certificates")
      ->required()
      ->type_name("CERT");
  CLI::Option* only = command->add_option("--only", options->only, "extract only the entry NAME")
                          ->type_name("NAME");
  command->add_option("--exclude", options->exclude, "extract every entry but NAME")
      ->type_name("NAME")
      ->excludes(only);
  command->add_flag("--quiet", options->request.quiet,
                    "hide the lines that the library prints on standard output");
  command->add_flag("--json", options->json,
                    "print the outcome as JSON on standard output (implies --quiet)");
  CLI::Option* strict =
      command->add_flag("--strict", options->strict,
                        "fail when the run did not write a file that the manifest lists");
  command
      ->add_flag("--allow-incomplete", options->allowIncomplete,
                 "do not check that the run wrote every file that the manifest lists")
      ->excludes(strict);
  AddLocalTimeFlag(command, &options->localTime);
  AddVerboseFlag(command);
  command->add_option("PACKAGE", options->request.package, "the package to unpack")
      ->required()
      ->type_name("");
  command->add_option("DEST", options->request.destination, "the destination directory")
      ->required()
      ->type_name("");
  return {command, [options] { return RunExtract(*options); }};
}

}  // namespace cli
