// The source reader's stage when the reader inflates the package: the read
// ring receives the tar inside the package's gzip layer, not the package.
//
// The bytes libarchive is shown are the bytes its own gzip filter would
// show it, damaged packages included, so that both routes come to the same
// end. That filter inflates in blocks of 64 KiB of output and drops a block
// in which it meets damage, and it meets a member's end as soon as its
// deflate data ends, together with the block that ends there. So the ring is
// published in whole 64 KiB spans of the tar: a span is held back until a
// byte follows it or, when the member's deflate data ends with it, until the
// member's trailer has been read. When the stream fails, what was published
// stays and the ring ends with the failure's text.
//
// Once libarchive has stopped taking chunks while the run still succeeds
// (it met the end of the archive), the rest of the package is still read and
// inflated, unpublished, so that every member's trailer is checked: the
// package must be whole to its last byte. An abort ends that too.
//
// One object per run, on the source reader's thread.
#ifndef EXTRACT_TAR_INFLATER_H_
#define EXTRACT_TAR_INFLATER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "extract/gzip_members.h"
#include "extract_verify/status.h"

class ReadAndExtractBuffer;

namespace ev {

class PackageReads;

class TarInflater {
 public:
  TarInflater(ReadAndExtractBuffer& ring, PackageReads& reads) : m_ring(ring), m_reads(reads) {}

  // Reads, inflates and publishes until the package's gzip stream ends or
  // the run stops; false, with nothing published, when the package does not
  // start as gzip. A failed read or an abort sets `status` as the reader
  // always has.
  bool run(_KALU_Error& status);

  // How the gzip stream failed, once run has returned; kNone when it ended
  // well or was not read to its end.
  GzipMembers::Failure failure() const { return m_gzip.failure(); }
  const std::string& failureText() const { return m_gzip.failureText(); }
  // Whether the run stopped (an abort) while the rest of the package was
  // being checked after the archive's end: the package was not read whole.
  bool tailCut() const { return m_bTailCut; }

 private:
  enum : uint64_t { kSpan = 65536 };
  bool reserveRegion();
  void advance(size_t produced);
  void publishUpTo(uint64_t boundary);
  void publishFailure();
  void readInput(_KALU_Error& status);
  void checkTail(_KALU_Error& status);

  ReadAndExtractBuffer& m_ring;
  PackageReads& m_reads;
  GzipMembers m_gzip;
  uint64_t m_produced = 0;            // bytes of tar inflated into the ring
  uint64_t m_published = 0;           // ... of which the ring's consumer may see
  unsigned char* m_region = nullptr;  // reserved room for the next bytes
  size_t m_regionLeft = 0;
  bool m_bTailCut = false;
};

// Whether the reader inflates: true, unless a test has turned the route off
// with SetTarInflaterEnabled (in the test build only), to compare both
// routes in one process.
bool TarInflaterEnabled();
void SetTarInflaterEnabled(bool enabled);

}  // namespace ev

#endif  // EXTRACT_TAR_INFLATER_H_
