// Fuzz target: a whole extraction run over any package file, against the
// fixed PKI of the process, into a fresh destination that is removed after
// the run. The input's size picks the extraction type, so that every input
// always runs the same way: a full run, only "readme.txt", or all but it.
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "extract/extraction.h"
#include "fuzz/fuzz_support.h"

// A run ends by flushing the file systems twice, which matters on the head
// unit and only costs time here: the fuzzer's files are thrown away.
extern "C" void sync(void) {}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::QuietProcess();
  fuzz::FixedPki::Get();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::FixedPki& pki = fuzz::FixedPki::Get();
  const std::string work = fuzz::MakeTempDir();
  const std::string packagePath = work + "/package.tar.gz";
  const std::string dest = work + "/out";
  fuzz::WriteBytes(packagePath, data, size);
  mkdir(dest.c_str(), 0755);

  const char* interested = size % 3 == 0 ? nullptr : "readme.txt";
  ExtractWithHash(pki.trustFile().c_str(), packagePath.c_str(), dest.c_str(), interested,
                  size % 3 == 2);

  fuzz::RemoveTree(work);
  return 0;
}
