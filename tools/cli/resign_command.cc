// extract-verify resign: the same package with a new signature. Version.der
// is replaced by the same manifest signed anew; every other entry keeps its
// header and data bytes.
#include <archive.h>
#include <archive_entry.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/cli/archive_scan.h"
#include "tools/cli/commands.h"
#include "tools/cli/input_checks.h"
#include "tools/cli/options.h"
#include "tools/cli/package_builder.h"
#include "tools/cli/package_output.h"
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

struct ReaderFree {
  void operator()(archive* reader) const { archive_read_free(reader); }
};
struct WriterFree {
  void operator()(archive* writer) const { archive_write_free(writer); }
};

void Check(archive* handle, int result, const std::string& what) {
  if (result < ARCHIVE_OK) {
    const char* text = archive_error_string(handle);
    throw std::runtime_error(what + ": " + (text != nullptr ? text : "libarchive error"));
  }
}

void CopyData(archive* reader, archive* writer, ByteProgress& progress) {
  std::vector<char> block(1 << 16);
  for (;;) {
    la_ssize_t count = archive_read_data(reader, block.data(), block.size());
    Check(reader, static_cast<int>(count < 0 ? count : 0), "cannot read the package");
    if (count == 0) return;
    Check(writer,
          archive_write_data(writer, block.data(), static_cast<size_t>(count)) == count
              ? ARCHIVE_OK
              : ARCHIVE_FATAL,
          "cannot write the package");
    progress.add(static_cast<uint64_t>(count));
  }
}

// Copies every entry of `from` into `to`, the data of the first Version.der
// replaced by `der`.
void CopyWithSignedManifest(const std::string& from, const std::string& to,
                            const std::vector<unsigned char>& der, ByteProgress& progress) {
  std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
  archive_read_support_format_tar(reader.get());
  archive_read_support_filter_gzip(reader.get());
  Check(reader.get(), archive_read_open_filename(reader.get(), from.c_str(), 1 << 16),
        "cannot open " + from);
  std::unique_ptr<archive, WriterFree> writer(archive_write_new());
  Check(writer.get(), archive_write_set_format_pax_restricted(writer.get()), "tar format");
  Check(writer.get(), archive_write_add_filter_gzip(writer.get()), "gzip filter");
  Check(writer.get(), archive_write_open_filename(writer.get(), to.c_str()), "cannot open " + to);
  bool replaced = false;
  archive_entry* entry = nullptr;
  int result;
  while ((result = archive_read_next_header(reader.get(), &entry)) == ARCHIVE_OK) {
    const bool signedManifest =
        !replaced && std::string(archive_entry_pathname(entry)) == "Version.der";
    if (signedManifest) archive_entry_set_size(entry, static_cast<la_int64_t>(der.size()));
    Check(writer.get(), archive_write_header(writer.get(), entry), "cannot write the package");
    if (signedManifest) {
      archive_write_data(writer.get(), der.data(), der.size());
      replaced = true;
    } else {
      CopyData(reader.get(), writer.get(), progress);
    }
  }
  Check(reader.get(), result == ARCHIVE_EOF ? ARCHIVE_OK : ARCHIVE_FATAL, "cannot read " + from);
  Check(writer.get(), archive_write_close(writer.get()), "cannot write " + to);
}

int RunResign(const Options& options) {
  CheckReadableFile(options.package, "package");
  try {
    const pki::Identity signer = LoadCheckedSigner(options.signing);
    ArchiveScan scan = ScanArchive(options.package, true);
    if (scan.signedManifestPieces.empty()) {
      throw PackRefused(options.package + " has no Version.der entry");
    }
    const std::vector<unsigned char> der =
        SignManifest(SignedContent(scan.signedManifestPieces.front()), signer);
    PackageOutput output(options.signing.out, options.signing.force);
    ByteProgress progress(std::filesystem::file_size(options.package));
    CopyWithSignedManifest(options.package, output.temporaryPath(), der, progress);
    progress.finish();
    CheckAgainstTrust(output.temporaryPath(), options.signing.trust);
    output.commit();
    printf("%s: wrote %s: %s signed anew (Version.der of %zu bytes)\n", kToolName,
           options.signing.out.c_str(), options.package.c_str(), der.size());
    return kExitSuccess;
  } catch (const PackRefused& refused) {
    fprintf(stderr, "%s resign: refused: %s\n", kToolName, refused.what());
    return kExitFailure;
  }
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
