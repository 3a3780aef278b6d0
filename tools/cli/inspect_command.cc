// extract-verify inspect: checks a package as the extractor would, and
// more, without writing any of its files.
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "extract_verify/manifest.h"
#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/manifest_verify.h"
#include "tools/cli/options.h"
#include "tools/cli/package_check.h"
#include "tools/cli/signature_check.h"
#include "tools/cli/status_text.h"

namespace cli {

namespace {

using Json = nlohmann::ordered_json;

const char kDescription[] =
    "Checks PACKAGE without extracting it: verifies Version.der against the trusted\n"
    "certificates in CERT as the extractor does, then reads every entry and checks\n"
    "its size and SHA-256 against the signed manifest. Prints the signer, the\n"
    "manifest's header and files, and every entry the extractor would refuse or\n"
    "that does not match. Nothing is written outside a temporary directory.";

const char kFooter[] =
    "Exit status 0 when the signature verifies, the manifest parses, every entry is\n"
    "one the extractor takes and matches the manifest, and no listed file is\n"
    "missing; 1 otherwise.";

struct Options {
  std::string cert;
  std::string package;
  bool json = false;
  bool localTime = false;
};

Json HeaderJson(const EV_Version_TPN& manifest) {
  return {{"Torvan Part Number", manifest.m_strPartNumber},
          {"Version Number", manifest.m_strVersionNumber},
          {"Type", manifest.m_strType},
          {"VIN", manifest.m_strVIN},
          {"ESN", manifest.m_strESN},
          {"Start Date", manifest.m_strStartDate},
          {"End Date", manifest.m_strEndDate},
          {"Pre-Script", manifest.m_strPreScript},
          {"Post-Script", manifest.m_strPostScript},
          {"Save Location", manifest.m_strSaveLocation}};
}

Json SignatureJson(const ArchiveScan& scan, const Verification* verification) {
  Json signature = {{"verified", verification && verification->signatureVerified}};
  if (!scan.signedManifestPieces.empty()) {
    SignerDescription signer = DescribeSigner(scan.signedManifestPieces.front());
    if (signer.found) {
      signature["signer"] = {{"subject", signer.subject},
                             {"issuer", signer.issuer},
                             {"notBefore", signer.notBefore},
                             {"notAfter", signer.notAfter}};
    }
  }
  if (verification == nullptr) {
    signature["reason"] = "the package has no Version.der entry";
    return signature;
  }
  signature["status"] = CKALUStatus::EnumToStr(verification->status);
  signature["code"] = static_cast<int>(verification->status);
  if (!verification->reason.empty()) signature["reason"] = verification->reason;
  return signature;
}

Json ManifestJson(const EV_Version_TPN& manifest) {
  Json files = Json::array();
  for (const _stVersionInfFileInfo& file : manifest.m_vecFileInfo) {
    files.push_back(
        {{"name", file.strFileName}, {"size", file.ullFileSize}, {"sha256", file.strHashValue}});
  }
  return {{"header", HeaderJson(manifest)}, {"files", files}};
}

// An entry's tar header beyond its name and size, the mode in octal.
Json HeaderValuesJson(const ScannedEntry& entry) {
  char mode[16];
  snprintf(mode, sizeof mode, "%o", entry.mode);
  return {{"mode", mode},         {"uid", entry.uid},     {"gid", entry.gid},
          {"uname", entry.uname}, {"gname", entry.gname}, {"mtime", entry.mtime}};
}

// The whole report; the text output is printed from it as well, so that
// both say the same.
Json Report(const Options& options, const std::string& zone, const ArchiveScan& scan,
            const Verification* verification, const PackageFindings& findings) {
  const bool manifestGood = verification && verification->status == KALU_NO_ERR;
  Json report = {{"package", options.package},
                 {"timeZone", zone},
                 {"signature", SignatureJson(scan, verification)}};
  if (manifestGood) report["manifest"] = ManifestJson(verification->manifest);
  Json entries = Json::array();
  for (const ScannedEntry& entry : scan.entries) {
    entries.push_back({{"name", entry.name},
                       {"size", entry.bytes},
                       {"sha256", entry.sha256},
                       {"header", HeaderValuesJson(entry)}});
  }
  report["entries"] = entries;
  report["refused"] = findings.refused;
  report["notInManifest"] = findings.notInManifest;
  report["mismatched"] = findings.mismatched;
  report["missingFromArchive"] = findings.missing;
  report["result"] = manifestGood && findings.clean() ? "OK" : "FAILED";
  return report;
}

void PrintList(const char* title, const Json& items) {
  printf("%s:%s\n", title, items.empty() ? " none" : "");
  for (const Json& item : items) printf("  %s\n", item.get_ref<const std::string&>().c_str());
}

// `json[key]` as a C string, for printf.
const char* Text(const Json& json, const char* key) {
  return json[key].get_ref<const std::string&>().c_str();
}

void PrintSignature(const Json& report) {
  const Json& signature = report["signature"];
  if (signature.contains("signer")) {
    const Json& signer = signature["signer"];
    printf("Signer: %s\n  issued by %s\n  valid from %s to %s\n", Text(signer, "subject"),
           Text(signer, "issuer"), Text(signer, "notBefore"), Text(signer, "notAfter"));
  }
  printf("Signature: %s (checked in %s)\n", signature["verified"] ? "verified" : "NOT verified",
         Text(report, "timeZone"));
  if (signature.contains("reason")) printf("  %s\n", Text(signature, "reason"));
}

void PrintManifest(const Json& manifest) {
  printf("Manifest header:\n");
  for (const auto& field : manifest["header"].items()) {
    const std::string& value = field.value().get_ref<const std::string&>();
    printf("  %-19s %s\n", field.key().c_str(), value.empty() ? "-" : value.c_str());
  }
  const Json& files = manifest["files"];
  printf("Manifest files: %zu\n", files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    printf("  File%zu  %s  %llu bytes  %s\n", i + 1, Text(files[i], "name"),
           files[i]["size"].get<unsigned long long>(), Text(files[i], "sha256"));
  }
}

void PrintText(const Json& report) {
  printf("Package: %s (%zu entries)\n", Text(report, "package"), report["entries"].size());
  PrintSignature(report);
  if (report.contains("manifest")) PrintManifest(report["manifest"]);
  PrintList("Entries the extractor refuses", report["refused"]);
  PrintList("Entries not in the manifest (the extractor fails with SIGN_ERR02)",
            report["notInManifest"]);
  PrintList("Entries that differ from the manifest (SIGN_ERR02)", report["mismatched"]);
  PrintList("Manifest files missing from the archive", report["missingFromArchive"]);
  printf("Result: %s\n", Text(report, "result"));
}

int RunInspect(const Options& options) {
  const std::string zone = UseVerificationTimeZone(options.localTime);
  CheckCertificateFile(options.cert);
  CheckReadableFile(options.package, "package");
  const ArchiveScan scan = ScanArchive(options.package);
  std::unique_ptr<Verification> verification;
  PackageFindings findings = CheckEntries(scan);
  if (!scan.signedManifestPieces.empty()) {
    verification = std::make_unique<Verification>(
        VerifySignedManifest(scan.signedManifestPieces.front(), options.cert));
    if (verification->status == KALU_NO_ERR) {
      findings = CheckAgainstManifest(scan, verification->manifest.m_vecFileInfo);
    }
  }
  const Json report = Report(options, zone, scan, verification.get(), findings);
  if (options.json) {
    printf("%s\n", report.dump(2).c_str());
  } else {
    if (verification && (g_verbose || verification->status != KALU_NO_ERR)) {
      printf("Library output:\n");
      std::istringstream lines(verification->libraryOutput);
      for (std::string line; std::getline(lines, line);) printf("  %s\n", line.c_str());
    }
    PrintText(report);
  }
  if (verification && verification->status != KALU_NO_ERR) {
    fflush(stdout);
    ReportFailedStatus(
        verification->signatureVerified ? "manifest refused" : "signature check failed",
        verification->status, options.localTime);
  }
  return report["result"] == "OK" ? kExitSuccess : kExitFailure;
}

}  // namespace

Command AddInspectCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      tool.add_subcommand("inspect", "verify a package and every entry, unpacking nothing");
  command->footer(std::string(kDescription) + "\n\n" + kFooter);
  command->add_option("--cert", options->cert, "PEM file of the trusted certificates")
      ->required()
      ->type_name("CERT");
  command->add_flag("--json", options->json, "print the report as JSON on standard output");
  AddLocalTimeFlag(command, &options->localTime);
  AddVerboseFlag(command);
  command->add_option("PACKAGE", options->package, "the package to check")
      ->required()
      ->type_name("");
  return {command, [options] { return RunInspect(*options); }};
}

}  // namespace cli
