// What the fuzz targets share: a quiet standard output, temporary
// directories, and one fixed PKI per process.
//
// The PKI (a root CA, the trust anchor, and a signer issued by it) is made
// once per process. When EV_FUZZ_PKI names a directory, it is read from
// there, or made and stored there when the directory holds none yet, so that
// the seed packages that make_seeds signs keep verifying in every later
// fuzzing process. The root is written as the trust file of the runs into a
// temporary directory of the process.
//
// Everything here is for one thread: the fuzzing loop.
#ifndef FUZZ_FUZZ_SUPPORT_H_
#define FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/pki/pki.h"

namespace fuzz {

// Sends what the library prints to /dev/null (the fuzzer reports on
// standard error), unless EV_FUZZ_VERBOSE=1 asks to see it when an input is
// replayed, and fixes the time zone, in which certificate times are
// converted.
void QuietProcess();

// A fresh directory under $TMPDIR (or /tmp); RemoveTree removes one with all
// it holds.
std::string MakeTempDir();
void RemoveTree(const std::string& path);

void WriteBytes(const std::string& path, const uint8_t* data, size_t size);

class FixedPki {
 public:
  static const FixedPki& Get();

  const pki::Identity& signer() const { return m_signer; }
  const std::string& trustFile() const { return m_trustFile; }
  // A directory of this process for the targets' own files.
  const std::string& workDir() const { return m_workDir; }

 private:
  FixedPki();

  pki::Identity m_root;
  pki::Identity m_signer;
  std::string m_workDir;
  std::string m_trustFile;
};

}  // namespace fuzz

#endif  // FUZZ_FUZZ_SUPPORT_H_
