// The one harness of the fuzz targets. It owns LLVMFuzzerInitialize and
// LLVMFuzzerTestOneInput: standard output goes to /dev/null (the fuzzer
// reports on standard error) unless EV_FUZZ_VERBOSE=1 asks to see it when an
// input is replayed, the time zone is fixed (certificate times are converted
// in it), and each input is written as the file "input" of a fresh directory
// that is removed afterwards. A target defines only fuzz::FuzzOne.
//
// The PKI (a root CA, the trust anchor, and a signer issued by it) is made
// once per process. When EV_FUZZ_PKI names a directory it is read from there,
// or made and stored there when the directory holds none yet, so that the
// seed packages that make_seeds signs keep verifying in every later fuzzing
// process. Everything here is for one thread: the fuzzing loop.
#ifndef FUZZ_HARNESS_H_
#define FUZZ_HARNESS_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/testsupport/temp_dir.h"
#include "tools/pki/pki.h"

namespace fuzz {

// One input: `data` is also the file `dir` + "/input".
void FuzzOne(const std::string& dir, const uint8_t* data, size_t size);

class FixedPki {
 public:
  static const FixedPki& Get();
  const pki::Identity& signer() const { return m_signer; }
  std::string trustFile() const { return m_dir.file("trust.pem"); }

 private:
  FixedPki();
  pki::Identity m_root;
  pki::Identity m_signer;
  testsupport::TempDir m_dir;
};

}  // namespace fuzz

#endif  // FUZZ_HARNESS_H_
