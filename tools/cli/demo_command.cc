// extract-verify demo: the whole road of a package on this machine, with
// nothing but the built project: a throwaway PKI, a signed sample package,
// and one extraction run with the progress display.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "authoring/package/package_writer.h"
#include "authoring/pki/pki.h"
#include "tools/cli/commands.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/run_extraction.h"
#include "tools/cli/status_text.h"
#include "tools/cli/temp_directory.h"
#include "tools/cli/text_format.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

const char kFooter[] =
    "Shows the whole road of an update package: makes a throwaway root CA and signer,\n"
    "writes a few sample files (one of a few MiB), packs and signs them, and extracts\n"
    "the package with the progress display, verifying it as the head unit does. The\n"
    "keys live in memory only; the certificate, the package and the extracted files\n"
    "are kept, and the demo says where.";

struct Options {
  bool quiet = false;
  bool localTime = false;
  std::string dir;
};

const pki::Seconds kDay = 24 * 60 * 60;
// Larger than the library's 4 MiB read ring once compressed, so that the
// progress display has something to show.
const uint64_t kLargeFileBytes = uint64_t{16} << 20;

struct SampleFile {
  const char* name;
  const char* text;  // null: generated content of kLargeFileBytes
};

const SampleFile kSamples[] = {
    {"release-notes.txt",
     "Demo update 1.0.0\n\n- Faster start-up of the navigation screen.\n"
     "- New voice prompts.\n"},
    {"settings.ini", "[display]\nbrightness=7\nnight_mode=auto\n"},
    {"post-install.sh", "#!/bin/sh\necho \"update installed\"\n"},
    {"system.img", nullptr},
};

std::string UtcDate(time_t when) {
  std::tm fields{};
  gmtime_r(&when, &fields);
  char text[16];
  strftime(text, sizeof text, "%Y-%m-%d", &fields);
  return text;
}

void WriteSample(const std::string& path, const SampleFile& sample) {
  std::ofstream out(path, std::ios::binary);
  if (sample.text != nullptr) {
    out << sample.text;
  } else {
    // Partly compressible, like a real image.
    package::ContentGenerator generator(kLargeFileBytes, 2024, true);
    std::vector<unsigned char> piece(1 << 16);
    while (size_t count = generator.read(piece.data(), piece.size())) {
      out.write(reinterpret_cast<const char*>(piece.data()), static_cast<std::streamsize>(count));
    }
  }
  if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

// The working directory: the one asked for, or a new temporary one that is
// kept for the user to look into.
std::string WorkDirectory(const Options& options, std::optional<TempDirectory>& temporary) {
  if (!options.dir.empty()) {
    fs::create_directories(options.dir);
    return fs::absolute(options.dir).string();
  }
  temporary.emplace("extract-verify-demo");
  temporary->keep();
  return temporary->path();
}

void PrintExtractedFiles(const std::string& directory) {
  std::vector<std::pair<std::string, uint64_t>> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    files.emplace_back(entry.path().filename().string(), entry.file_size());
  }
  std::sort(files.begin(), files.end());
  printf("Extracted files in %s:\n", directory.c_str());
  for (const auto& file : files) {
    printf("  %-20s %s\n", file.first.c_str(), HumanSize(file.second).c_str());
  }
}

int RunDemo(const Options& options) {
  const std::string zone = UseVerificationTimeZone(options.localTime);
  std::optional<TempDirectory> temporary;
  const std::string dir = WorkDirectory(options, temporary);
  const std::string trust = dir + "/trust.pem";
  const std::string packagePath = dir + "/package.tar.gz";
  const std::string input = dir + "/input";
  const std::string extracted = dir + "/extracted";
  printf("%s demo: working in %s\n", kToolName, dir.c_str());

  const time_t now = time(nullptr);
  pki::Identity root = pki::MakeRootCa("Demo Update Root", {now - 2 * kDay, now + 365 * kDay});
  pki::Identity signer =
      pki::MakeSigner("Demo Update Signer", {now - kDay, now + 180 * kDay}, root);
  pki::WriteCertificatesPem(trust, {root.cert.get()});
  printf("  made a throwaway root CA and signer; the root certificate is %s\n", trust.c_str());

  fs::create_directories(input);
  std::vector<std::string> files;
  for (const SampleFile& sample : kSamples) {
    files.push_back(input + "/" + sample.name);
    WriteSample(files.back(), sample);
  }
  printf("  wrote %zu sample files into %s\n", files.size(), input.c_str());

  const package::ManifestHeader header = {{"Torvan Part Number", "DEMO-0001"},
                                          {"Version Number", "1.0.0"},
                                          {"Type", "Full"},
                                          {"Start Date", UtcDate(now)},
                                          {"End Date", UtcDate(now + 365 * kDay)}};
  PackResult packed = BuildPackage(header, files, packagePath, &signer);
  printf("  packed and signed them into %s (%s, Version.der of %zu bytes)\n", packagePath.c_str(),
         HumanSize(packed.packageBytes).c_str(), packed.signedManifestBytes);

  fs::create_directories(extracted);
  printf("  extracting into %s (signature checked in %s)\n\n", extracted.c_str(), zone.c_str());
  ExtractionRequest request;
  request.certificate = trust;
  request.package = packagePath;
  request.destination = extracted;
  request.quiet = options.quiet;
  _KALU_Error status = RunExtraction(request);

  printf("\n");
  if (status != KALU_NO_ERR) {
    ReportFailedStatus("demo extraction failed", status, options.localTime);
    fprintf(stderr, "  the files are kept in %s\n", dir.c_str());
    return kExitFailure;
  }
  printf("Result: %s: %s\n", StatusName(status).c_str(), StatusMeaning(status));
  PrintExtractedFiles(extracted);
  printf(
      "\nThe keys were never written to disk. Try the package yourself:\n"
      "  %s inspect --cert %s %s\n"
      "  %s extract --cert %s %s DEST\n",
      g_invokedAs, trust.c_str(), packagePath.c_str(), g_invokedAs, trust.c_str(),
      packagePath.c_str());
  if (temporary) printf("Remove it all with: rm -r %s\n", dir.c_str());
  return kExitSuccess;
}

}  // namespace

Command AddDemoCommand(CLI::App& tool) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      tool.add_subcommand("demo", "make keys and a sample package, then extract it");
  command->footer(kFooter);
  command->add_flag("--quiet", options->quiet,
                    "hide the lines that the library prints on standard output");
  command
      ->add_option("--dir", options->dir,
                   "work in DIR (made when missing) instead of a new temporary directory")
      ->type_name("DIR");
  AddLocalTimeFlag(command, &options->localTime);
  return {command, [options] { return RunDemo(*options); }};
}

}  // namespace cli
