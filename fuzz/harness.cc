#include "fuzz/harness.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "tests/testsupport/temp_dir.h"

namespace fuzz {

const std::string& TrustFile() {
  static const std::string path =
      std::string(std::getenv("EV_FUZZ_PKI") != nullptr ? std::getenv("EV_FUZZ_PKI") : ".") +
      "/trust.pem";
  return path;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* verbose = std::getenv("EV_FUZZ_VERBOSE");
  if (verbose == nullptr || *verbose != '1') {
    fflush(stdout);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  }
  setenv("TZ", "UTC", 1);
  tzset();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  testsupport::TempDir dir;
  testsupport::WriteFile(dir.file("input"), std::string(reinterpret_cast<const char*>(data), size));
  fuzz::FuzzOne(dir.path(), data, size);
  return 0;
}
