// extract-verify inspect: checks a package without extracting it.
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "manifest/version_tpn.h"
#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/status_text.h"
#include "tools/cli/stdout_redirect.h"
#include "tools/cli/temp_directory.h"
#include "verify/unsign.h"

namespace cli {

namespace {

const char kUsage[] =
    "Usage: extract-verify inspect --cert CERT [--verbose] PACKAGE\n"
    "\n"
    "Checks PACKAGE without extracting it: verifies Version.der against the trusted\n"
    "certificates in CERT as the extractor does, prints the signed manifest's header\n"
    "values and file list, and compares the file list with the archive's entries.\n"
    "Nothing is written outside a temporary directory, which is removed.\n"
    "\n"
    "Options:\n"
    "  --cert CERT   PEM file of the trusted certificates\n"
    "  --verbose     also print the lines that the library prints while verifying\n"
    "                (without it they are shown only when verification fails)\n"
    "\n"
    "Exit status 0 when the signature verifies, the manifest parses, every entry is\n"
    "one the extractor takes, and the archive and the manifest list the same files;\n"
    "1 otherwise.\n";

const std::vector<OptionDef> kOptions = {{"cert", OptionKind::kValue},
                                         {"verbose", OptionKind::kFlag}};

struct Verification {
  _KALU_Error status = SIGN_ERR01;
  bool signatureVerified = false;  // else `status` is that of the signature check
  EV_Version_TPN manifest;
  std::string libraryOutput;
};

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Verifies the signed manifest into the temporary directory and parses it,
// with the library's printed lines kept aside.
void Verify(const ArchiveScan& scan, const std::string& cert, const TempDirectory& work,
            Verification& result) {
  const std::string outputPath = work.file("library-output.txt");
  const std::string manifestPath = work.file("Version.inf");
  {
    StdoutRedirect redirect = StdoutRedirect::ToFile(outputPath);
    result.status = static_cast<_KALU_Error>(
        EV_Unsign_using_date(manifestPath.c_str(), cert.c_str(), scan.signedManifest.data(),
                             static_cast<int>(scan.signedManifest.size())));
    if (result.status == KALU_NO_ERR) {
      result.signatureVerified = true;
      result.status = result.manifest.KALU_Parse_INF(manifestPath.c_str());
    }
  }
  result.libraryOutput = ReadText(outputPath);
}

// The library's lines, indented under a title. Some of its messages lack a
// line end; they stay on one line with the next, as on a terminal.
void PrintLibraryOutput(const std::string& text) {
  printf("Library output:\n");
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) printf("  %s\n", line.c_str());
}

void PrintHeader(const EV_Version_TPN& manifest) {
  const std::pair<const char*, const std::string*> fields[] = {
      {"Torvan Part Number", &manifest.m_strPartNumber},
      {"Version Number", &manifest.m_strVersionNumber},
      {"Type", &manifest.m_strType},
      {"VIN", &manifest.m_strVIN},
      {"ESN", &manifest.m_strESN},
      {"Start Date", &manifest.m_strStartDate},
      {"End Date", &manifest.m_strEndDate},
      {"Pre-Script", &manifest.m_strPreScript},
      {"Post-Script", &manifest.m_strPostScript},
      {"Save Location", &manifest.m_strSaveLocation}};
  printf("Manifest header:\n");
  for (const auto& field : fields) {
    printf("  %-19s %s\n", field.first, field.second->empty() ? "-" : field.second->c_str());
  }
  printf("Manifest files: %zu\n", manifest.m_vecFileInfo.size());
  for (size_t i = 0; i < manifest.m_vecFileInfo.size(); ++i) {
    const _stVersionInfFileInfo& file = manifest.m_vecFileInfo[i];
    printf("  File%zu  %s  %llu bytes  %s\n", i + 1, file.strFileName.c_str(),
           static_cast<unsigned long long>(file.ullFileSize), file.strHashValue.c_str());
  }
}

// Prints a titled list ("none" when empty); returns whether it was empty.
bool PrintList(const char* title, const std::vector<std::string>& items) {
  printf("%s:%s\n", title, items.empty() ? " none" : "");
  for (const std::string& item : items) printf("  %s\n", item.c_str());
  return items.empty();
}

// What the extractor refuses in the entries: those at which it stops, a
// signed manifest it cannot verify in one read or a second one, and names
// that come twice. It never reaches the entries after one that stops it.
std::vector<std::string> RefusedEntries(const ArchiveScan& scan) {
  static const char kSecondManifest[] = ": a second signed manifest (SIGN_ERR01)";
  static const char kNameTwice[] = ": comes twice (PKG_ERR03 unless the data is the same)";
  std::vector<std::string> refused;
  std::set<std::string> seen;
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    const ScannedEntry& entry = scan.entries[i];
    const bool signedManifest = entry.name == "Version.der";
    if (entry.size <= 0) {
      refused.push_back(entry.name + ": empty or a directory (the extractor stops here)");
    } else if (entry.name.find("..") != std::string::npos) {
      refused.push_back(entry.name + ": name contains \"..\" (the extractor stops here)");
    } else if (!seen.insert(entry.name).second) {
      refused.push_back(entry.name + (signedManifest ? kSecondManifest : kNameTwice));
    } else if (signedManifest && static_cast<size_t>(entry.size) > kMaxSignedManifestBytes) {
      refused.push_back(entry.name + ": " + std::to_string(entry.size) +
                        " bytes; the extractor verifies at most " +
                        std::to_string(kMaxSignedManifestBytes));
    }
  }
  if (!scan.readError.empty()) refused.push_back("archive damaged: " + scan.readError);
  return refused;
}

// Compares the files that the extractor would write with the manifest.
bool CompareWithManifest(const ArchiveScan& scan, const EV_Version_TPN& manifest) {
  std::map<std::string, uint64_t> listed;
  for (const _stVersionInfFileInfo& file : manifest.m_vecFileInfo) {
    listed.emplace(file.strFileName, file.ullFileSize);
  }
  std::set<std::string> inArchive;
  std::vector<std::string> unlisted;
  std::vector<std::string> sizeDiffers;
  for (size_t i = 0; i < scan.entries.size(); ++i) {
    const ScannedEntry& entry = scan.entries[i];
    if ((scan.hasSignedManifest && i == scan.signedManifestIndex) || entry.size <= 0) continue;
    inArchive.insert(entry.name);
    auto found = listed.find(entry.name);
    if (found == listed.end()) {
      unlisted.push_back(entry.name);
    } else if (found->second != static_cast<uint64_t>(entry.size)) {
      sizeDiffers.push_back(entry.name + ": " + std::to_string(entry.size) +
                            " bytes in the archive, " + std::to_string(found->second) +
                            " in the manifest");
    }
  }
  std::vector<std::string> missing;
  for (const auto& file : listed) {
    if (inArchive.count(file.first) == 0) missing.push_back(file.first);
  }
  bool same = PrintList("Archive entries not in the manifest (the extractor fails with "
                        "SIGN_ERR02)", unlisted);
  same = PrintList("Manifest files missing from the archive", missing) && same;
  if (!sizeDiffers.empty()) {
    PrintList("Warning: sizes differ (the extractor checks digests, not sizes)", sizeDiffers);
  }
  return same;
}

int RunInspect(const std::vector<std::string>& args) {
  ParsedOptions options = ParseOptions(args, kOptions);
  std::string cert = options.required("cert");
  ExpectPositional(options, 1, "PACKAGE");
  const std::string& packagePath = options.positional[0];
  const bool verbose = options.has("verbose");

  ArchiveScan scan = ScanArchive(packagePath);
  printf("Package: %s (%zu entries)\n", packagePath.c_str(), scan.entries.size());

  bool good = PrintList("Entries the extractor refuses", RefusedEntries(scan));
  if (!scan.hasSignedManifest) {
    printf("Signature: no Version.der entry\n");
    printf("Result: FAILED\n");
    return kExitFailure;
  }

  TempDirectory work("extract-verify-inspect");
  Verification verification;
  Verify(scan, cert, work, verification);
  const bool verified = verification.status == KALU_NO_ERR;
  if (verbose || !verified) PrintLibraryOutput(verification.libraryOutput);
  if (!verified) {
    const bool signature = !verification.signatureVerified;
    printf("Signature: %s\n", signature ? "NOT verified" : "verified, but the manifest is refused");
    printf("Result: FAILED\n");
    fflush(stdout);
    ReportFailedStatus(signature ? "signature check failed" : "manifest refused",
                       verification.status);
    return kExitFailure;
  }
  printf("Signature: verified against %s\n", cert.c_str());
  PrintHeader(verification.manifest);
  good = CompareWithManifest(scan, verification.manifest) && good;
  printf("Result: %s\n", good ? "OK" : "FAILED");
  return good ? kExitSuccess : kExitFailure;
}

}  // namespace

const Command kInspectCommand = {
    "inspect", "verify a package and list its manifest, unpacking nothing", kUsage, RunInspect};

}  // namespace cli
