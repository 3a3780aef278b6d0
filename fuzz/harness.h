// The one harness of the fuzz targets. It owns LLVMFuzzerInitialize and
// LLVMFuzzerTestOneInput: standard output goes to /dev/null (the fuzzer
// reports on standard error) unless EV_FUZZ_VERBOSE=1 asks to see it when an
// input is replayed, the time zone is fixed (certificate times are converted
// in it), and each input is written as the file "input" of a fresh directory
// that is removed afterwards. A target defines only fuzz::FuzzOne.
//
// The signature checks trust EV_FUZZ_PKI/trust.pem, the root of the PKI that
// make_seeds keeps in that directory and signs the seeds with, so that seeds
// and the inputs grown from them get through the check in every fuzzing
// process. Everything here is for one thread: the fuzzing loop.
#ifndef FUZZ_HARNESS_H_
#define FUZZ_HARNESS_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

// One input: `data` is also the file `dir` + "/input".
void FuzzOne(const std::string& dir, const uint8_t* data, size_t size);

// EV_FUZZ_PKI + "/trust.pem" (from the working directory when unset).
const std::string& TrustFile();

}  // namespace fuzz

#endif  // FUZZ_HARNESS_H_
