// Fuzz target: a whole extraction run over any package file, against the
// fixed PKI, into a fresh destination. The input's size picks the extraction
// type, so that every input always runs the same way: a full run, only
// "readme.txt", or all but it.
#include <sys/stat.h>

#include "extract/run_state.h"
#include "fuzz/harness.h"

// A run ends by flushing the file systems twice, which matters on the head
// unit and only costs time here: the fuzzer's files are thrown away.
extern "C" void sync(void) {}

void fuzz::FuzzOne(const std::string& dir, const uint8_t*, size_t size) {
  const std::string dest = dir + "/out";
  mkdir(dest.c_str(), 0755);
  ExtractWithHash(FixedPki::Get().trustFile().c_str(), (dir + "/input").c_str(), dest.c_str(),
                  size % 3 == 0 ? nullptr : "readme.txt", size % 3 == 2);
}
