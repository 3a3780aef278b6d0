// Writes the seed inputs of the fuzz targets, signed with the PKI kept in
// EV_FUZZ_PKI (made and stored there the first time, its root as trust.pem),
// so that the fuzzers start from inputs that get through the signature check:
//   make_seeds OUT_DIR   writes OUT_DIR/{manifest,unsign,extract}/seed-*
// Seeds are made afresh at every fuzzing run rather than kept in the
// repository: they hold signatures of a PKI that exists only on this machine.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "authoring/package/manifest_text.h"
#include "authoring/package/package_writer.h"
#include "authoring/pki/pki.h"
#include "tests/testsupport/temp_dir.h"

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

// The signer kept in `dir`; made, with its root as trust.pem, the first time.
pki::Identity KeptSigner(const std::string& dir) {
  if (testsupport::FileExists(dir + "/signer.key")) {
    return pki::LoadIdentity(dir + "/signer.pem", dir + "/signer.key");
  }
  mkdir(dir.c_str(), 0700);
  pki::Identity root =
      pki::MakeRootCa("Fuzz Root", {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)});
  pki::Identity signer =
      pki::MakeSigner("Fuzz Signer", {pki::UtcTime(2021, 6, 1), pki::UtcTime(2039, 1, 1)}, root);
  pki::WriteCertificatesPem(dir + "/trust.pem", {root.cert.get()});
  pki::WriteCertificatesPem(dir + "/signer.pem", {signer.cert.get()});
  pki::WriteKeyPem(dir + "/signer.key", signer.key.get());
  return signer;
}

// A package with Version.der at `manifestAt` over the regular entries.
std::string Package(const pki::Identity& signer, std::vector<Entry> entries, size_t manifestAt) {
  const std::string der = Der(pki::SignPkcs7Der(ManifestOf(entries), signer));
  entries.insert(entries.begin() + static_cast<long>(manifestAt), Entry::File("Version.der", der));
  // Compressed apart: the archive writer pads its compressed output with
  // zeros to a whole block, which would only lengthen the seeds.
  return package::GzipCompress(
      package::WritePackageToMemory(entries, {package::TarFormat::kPaxRestricted, false}));
}

void ExtractSeeds(const std::string& dir, const pki::Identity& signer) {
  const std::vector<Entry> files = {Entry::File("readme.txt", "read me\n"),
                                    Entry::Generated("app.bin", 40000, 1, true),
                                    Entry::File("tiny", "t")};
  Write(dir, "full", Package(signer, files, 0));
  Write(dir, "manifest-second", Package(signer, files, 1));
  Write(dir, "only-manifest", Package(signer, {}, 0));
  Write(dir, "directory", Package(signer, {files[0], Entry::Directory("dir")}, 0));
  Write(dir, "symlink", Package(signer, {files[0], Entry::Symlink("link", "/tmp")}, 0));
}

void UnsignSeeds(const std::string& dir, const pki::Identity& signer) {
  const std::string content = ManifestOf({Entry::File("a", "a\n")});
  Write(dir, "signed", Der(pki::SignPkcs7Der(content, signer)));
}

void ManifestSeeds(const std::string& dir) {
  Write(dir, "files", ManifestOf({Entry::File("a.img", "a\n"), Entry::File("b", "b\n")}));
  Write(dir, "gap", "File1=a\nFile1 Hash Value=00\nFile1 Size=1e3\nFile3=c\nFile2 Size=0.9\n");
  Write(dir, "invalid", "; comment\n[Header]\nFile1=\nFile1 Hash Value=ab\nFile1 Size=-5\n");
}

}  // namespace

int main(int argc, char** argv) {
  const char* kept = std::getenv("EV_FUZZ_PKI");
  if (argc != 2 || kept == nullptr) {
    fprintf(stderr, "usage: EV_FUZZ_PKI=DIR make_seeds OUT_DIR\n");
    return 2;
  }
  const pki::Identity signer = KeptSigner(kept);
  const std::string out = argv[1];
  mkdir(out.c_str(), 0755);
  ManifestSeeds(out + "/manifest");
  UnsignSeeds(out + "/unsign", signer);
  ExtractSeeds(out + "/extract", signer);
  return 0;
}
