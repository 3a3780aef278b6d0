#include "extract/tar_inflater.h"

#include <algorithm>
#include <atomic>
#include <memory>

#include "extract/package_reads.h"
#include "extract/run_stop.h"
#include "extract_verify/buffers.h"

namespace ev {

namespace {

// Chunks reserved at a time: the inflater writes into them in one call, and
// pays for the history it keeps once per call.
const uint32_t kRegionChunks = 16;

std::atomic<bool> g_bEnabled{true};

}  // namespace

bool TarInflater::run(_KALU_Error& status) {
  using Step = GzipMembers::Step;
  for (;;) {
    // The archive reader meets the end of what was published, as it would
    // meet the end of a package whose reading stopped there.
    if (run_stop::ReaderStops(m_ring.m_eStatus, &status)) {
      m_ring.writeFinished();
      return true;
    }
    size_t produced = 0;
    const Step step = m_gzip.decode(m_region, m_regionLeft, &produced);
    advance(produced);
    // A span that ends where the inflated bytes end may end with its member.
    const uint64_t heldBack = m_produced == 0 ? 0 : (m_produced - 1) / kSpan * kSpan;
    switch (step) {
      case Step::kNotGzip:
        return false;
      case Step::kOutputFull:
        publishUpTo(heldBack);
        if (m_regionLeft == 0 && !reserveRegion()) {
          checkTail(status);
          return true;
        }
        break;
      case Step::kNeedInput:
        publishUpTo(heldBack);
        readInput(status);
        break;
      case Step::kMemberEnd:
        publishUpTo(m_produced / kSpan * kSpan);
        break;
      case Step::kEnd:
        publishUpTo(m_produced);
        m_ring.writeFinished();
        return true;
      case Step::kFailed:
        publishFailure();
        return true;
    }
  }
}

bool TarInflater::reserveRegion() {
  uint32_t chunks = 0;
  m_region = m_ring.nextWrite(kRegionChunks, &chunks);
  m_regionLeft = size_t{chunks} * ReadAndExtractBuffer::kChunkSize;
  return m_region != nullptr;
}

void TarInflater::advance(size_t produced) {
  m_produced += produced;
  m_region += produced;
  m_regionLeft -= produced;
}

// Chunks are published whole, in the order they were reserved; only the
// last one of the stream may be short.
void TarInflater::publishUpTo(uint64_t boundary) {
  while (m_published < boundary) {
    const uint64_t length =
        std::min<uint64_t>(ReadAndExtractBuffer::kChunkSize, boundary - m_published);
    m_ring.writeReady(static_cast<unsigned int>(length));
    m_published += length;
  }
}

// The span in which the stream failed is dropped; so is a full span before
// it when the failure came with its last byte (the deflate data was damaged
// right there, or ended with it and the trailer failed). A cut in the
// deflate data right after a full span leaves that span whole.
void TarInflater::publishFailure() {
  uint64_t boundary = m_produced / kSpan * kSpan;
  if (boundary == m_produced && boundary > 0 &&
      m_gzip.failure() != GzipMembers::Failure::kCutInData) {
    boundary -= kSpan;
  }
  publishUpTo(boundary);
  m_ring.writeFailed(m_gzip.failureText());
}

// Reads up to eight chunks before inflating again: the inflater keeps a copy
// of its 32 KiB history at the end of every call, which costs little only
// when a call has much input to work on.
void TarInflater::readInput(_KALU_Error& status) {
  unsigned char* space = m_gzip.inputSpace();
  for (size_t room = GzipMembers::kInputSize; room >= PackageReads::kChunkSize;
       room -= PackageReads::kChunkSize) {
    const int64_t count = m_reads.read(space);
    if (count < 0) status = PKG_ERR03;
    if (count <= 0) {
      m_gzip.inputEnded();
      return;
    }
    m_gzip.inputAdded(static_cast<size_t>(count));
    if (count < PackageReads::kChunkSize) return;
    space += count;
  }
}

// The archive reader has stopped taking chunks. When it did so at the
// archive's end and the run still stands, the rest of the package is
// inflated into scratch space, for its trailers.
void TarInflater::checkTail(_KALU_Error& status) {
  using Step = GzipMembers::Step;
  if (run_stop::AbortRequested()) run_stop::ReportAbort();
  if (!m_ring.archiveEnded()) return;
  std::unique_ptr<unsigned char[]> scratch(new unsigned char[kSpan]);
  for (;;) {
    if (run_stop::ReaderStops(m_ring.m_eStatus, &status)) {
      m_bTailCut = true;
      return;
    }
    size_t produced = 0;
    const Step step = m_gzip.decode(scratch.get(), kSpan, &produced);
    if (step == Step::kNeedInput) readInput(status);
    if (step == Step::kEnd || step == Step::kFailed) return;
  }
}

bool TarInflaterEnabled() { return g_bEnabled; }

#ifdef EV_TEST_SEAMS
void SetTarInflaterEnabled(bool enabled) { g_bEnabled = enabled; }
#endif

}  // namespace ev
