// The fuzzer's entry points, shared by every target (harness.h).
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "fuzz/harness.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* verbose = std::getenv("EV_FUZZ_VERBOSE");
  if (verbose == nullptr || *verbose != '1') {
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    fflush(stdout);
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  setenv("TZ", "UTC", 1);
  tzset();
  fuzz::FixedPki::Get();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string dir = fuzz::MakeTempDir();
  fuzz::WriteBytes(dir + "/input", std::string(reinterpret_cast<const char*>(data), size));
  fuzz::FuzzOne(dir, data, size);
  fuzz::RemoveTree(dir);
  return 0;
}
