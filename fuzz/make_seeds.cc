// Writes the seed inputs of the fuzz targets, signed with the fixed PKI of
// EV_FUZZ_PKI, so that the fuzzers start from inputs that get through the
// signature check:
//   make_seeds OUT_DIR   writes OUT_DIR/{manifest,unsign,extract}/seed-*
// Seeds are made afresh at every fuzzing run rather than kept in the
// repository: they hold signatures of a PKI that exists only on this machine.
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "tools/package/manifest_text.h"
#include "tools/package/package_writer.h"

namespace {

using package::Entry;

void Write(const std::string& dir, const std::string& name, const std::string& bytes) {
  mkdir(dir.c_str(), 0755);  // the first seed of a target makes its directory
  testsupport::WriteFile(dir + "/seed-" + name, bytes);
}

std::string Der(const std::vector<unsigned char>& der) {
  return std::string(der.begin(), der.end());
}

// The manifest text of `files` (manifest placeholder and special entries
// left out).
std::string ManifestOf(const std::vector<Entry>& files) {
  std::vector<package::WrittenEntry> written;
  package::WritePackageToMemory(files, {package::TarFormat::kPaxRestricted, false}, &written);
  return package::ManifestText({{"Version Number", "1.0"}, {"Type", "Full"}},
                               package::ManifestFiles(written));
}

// A package with Version.der at `manifestAt` over the regular entries.
std::string Package(std::vector<Entry> entries, size_t manifestAt) {
  const pki::Identity& signer = fuzz::FixedPki::Get().signer();
  const std::string der = Der(pki::SignPkcs7Der(ManifestOf(entries), signer));
  entries.insert(entries.begin() + static_cast<long>(manifestAt), Entry::File("Version.der", der));
  // Compressed apart: the archive writer pads its compressed output with
  // zeros to a whole block, which would only lengthen the seeds.
  return package::GzipCompress(
      package::WritePackageToMemory(entries, {package::TarFormat::kPaxRestricted, false}));
}

void ExtractSeeds(const std::string& dir) {
  const std::vector<Entry> files = {Entry::File("readme.txt", "read me\n"),
                                    Entry::Generated("app.bin", 40000, 1, true),
                                    Entry::File("tiny", "t")};
  Write(dir, "full", Package(files, 0));
  Write(dir, "manifest-second", Package(files, 1));
  Write(dir, "only-manifest", Package({}, 0));
  Write(dir, "directory", Package({files[0], Entry::Directory("dir")}, 0));
  Write(dir, "symlink", Package({files[0], Entry::Symlink("link", "/tmp")}, 0));
}

void UnsignSeeds(const std::string& dir) {
  const pki::Identity& signer = fuzz::FixedPki::Get().signer();
  const std::string content = ManifestOf({Entry::File("a", "a\n")});
  Write(dir, "signed", Der(pki::SignPkcs7Der(content, signer)));
}

void ManifestSeeds(const std::string& dir) {
  Write(dir, "files", ManifestOf({Entry::File("a.img", "a\n"), Entry::File("b", "b\n")}));
  Write(dir, "header",
        "Torvan Part Number=TP-1\r\nVersion Number=2.0\r\nPre-Script=pre.sh\r\n"
        "Post-Script=\r\nSave Location=/fs/save\r\n");
  Write(dir, "gap", "File1=a\nFile1 Hash Value=00\nFile1 Size=1e3\nFile3=c\nFile2 Size=0.9\n");
  Write(dir, "invalid", "; comment\n[Header]\nFile1=\nFile1 Hash Value=ab\nFile1 Size=-5\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: make_seeds OUT_DIR\n");
    return 2;
  }
  const std::string out = argv[1];
  mkdir(out.c_str(), 0755);
  ManifestSeeds(out + "/manifest");
  UnsignSeeds(out + "/unsign");
  ExtractSeeds(out + "/extract");
  return 0;
}
