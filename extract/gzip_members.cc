#include "extract/gzip_members.h"

#include <isa-l/igzip_lib.h>

#include <cstdio>
#include <cstring>

namespace ev {

namespace {

// Bytes of the stream kept in front of new input: the inflater holds at most
// 64 bits of input it has not used when a member's deflate data ends.
const size_t kKeep = 16;
// Input the inflater may leave unused when it asks for more: less than one
// deflate block header.
const size_t kUnusedMax = 512;

// The texts of libarchive's gzip filter for the same failures.
const char kTruncated[] = "truncated gzip input";

enum HeaderFlag : unsigned char {
  kHeaderCrc = 2,
  kExtra = 4,
  kName = 8,
  kComment = 16,
  kReserved = 0xe0,
};

// The header's parts, in their order in the stream.
enum HeaderField { kFixed, kExtraLength, kExtraData, kFileName, kFileComment, kCrc16, kComplete };

uint32_t LittleEndian32(const unsigned char* bytes) {
  return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
         uint32_t{bytes[3]} << 24;
}

std::string Format(const char* format, uint32_t member, uint32_t computed, uint32_t stored) {
  char text[128];
  snprintf(text, sizeof text, format, member, computed, stored);
  return text;
}

}  // namespace

GzipMembers::GzipMembers()
    : m_input(new unsigned char[kKeep + kUnusedMax + kInputSize]),
      m_inPos(0),
      m_inEnd(0),
      m_state(new inflate_state) {
  isal_inflate_init(m_state.get());
}

GzipMembers::~GzipMembers() = default;

// The input not yet used (the inflater may leave a few bytes it cannot use
// alone) and the kKeep bytes before it, where a member's end may still point
// back to, move to the front; the new input follows them.
unsigned char* GzipMembers::inputSpace() {
  const size_t from = m_inPos < kKeep ? 0 : m_inPos - kKeep;
  std::memmove(m_input.get(), m_input.get() + from, m_inEnd - from);
  m_inPos -= from;
  m_inEnd -= from;
  return m_input.get() + m_inEnd;
}

void GzipMembers::inputAdded(size_t length) { m_inEnd += length; }

void GzipMembers::inputEnded() { m_bInputEnded = true; }

GzipMembers::Step GzipMembers::decode(unsigned char* out, size_t capacity, size_t* produced) {
  *produced = 0;
  if (m_phase == Phase::kHeader) {
    Step step = parseHeader();
    if (m_phase != Phase::kBody) return step;
  }
  if (m_phase == Phase::kBody) {
    if (capacity == 0) return Step::kOutputFull;
    Step step = inflateBody(out, capacity, produced);
    if (m_phase != Phase::kTrailer) return step;
  }
  if (m_phase == Phase::kTrailer) return checkTrailer();
  return m_failure == Failure::kNone ? Step::kEnd : Step::kFailed;
}

// Copies `count` bytes of input into `into`, all or none.
bool GzipMembers::takeBytes(unsigned char* into, size_t count) {
  if (available() < count) return false;
  std::memcpy(into, m_input.get() + m_inPos, count);
  m_inPos += count;
  return true;
}

// Advances through the header's fields as far as the input reaches. The
// fixed part is collected whole before it is judged; the other fields are
// skipped byte by byte, so a long name costs no memory.
GzipMembers::Step GzipMembers::parseHeader() {
  while (m_headerField != kComplete) {
    const unsigned char flags = m_fixed[3];
    if (m_headerField == kFixed) {
      size_t take = std::min(available(), sizeof m_fixed - m_fixedHave);
      takeBytes(m_fixed + m_fixedHave, take);
      m_fixedHave += take;
      if (m_fixedHave < sizeof m_fixed) break;
      if (std::memcmp(m_fixed, "\x1f\x8b\x08", 3) != 0 || (m_fixed[3] & kReserved) != 0) {
        return endOfHeaders();
      }
      m_headerField = (m_fixed[3] & kExtra) ? kExtraLength : kFileName;
    } else if (m_headerField == kExtraLength) {
      unsigned char length[2];
      if (!takeBytes(length, 2)) break;
      m_skip = uint32_t{length[0]} | uint32_t{length[1]} << 8;
      m_headerField = kExtraData;
    } else if (m_headerField == kExtraData || m_headerField == kCrc16) {
      size_t take = std::min<size_t>(available(), m_skip);
      m_inPos += take;
      m_skip -= static_cast<uint32_t>(take);
      if (m_skip > 0) break;
      m_headerField = m_headerField == kCrc16 ? kComplete : kFileName;
    } else {  // a name or a comment, each up to its NUL
      const HeaderFlag present = m_headerField == kFileName ? kName : kComment;
      bool ended = (flags & present) == 0;
      while (!ended && available() > 0) ended = m_input[m_inPos++] == 0;
      if (!ended) break;
      m_headerField = m_headerField == kFileName ? kFileComment : kCrc16;
      if (m_headerField == kCrc16) m_skip = (flags & kHeaderCrc) ? 2 : 0;
    }
  }
  if (m_headerField == kComplete) {
    isal_inflate_reset(m_state.get());
    m_state->crc_flag = ISAL_GZIP_NO_HDR;
    m_phase = Phase::kBody;
    return Step::kOutputFull;  // not seen by the caller: the body follows
  }
  if (!m_bInputEnded) return Step::kNeedInput;
  // libarchive reads an extra field's length but not the field itself: when
  // nothing follows it, a header cut inside it is taken as whole.
  if (m_headerField == kExtraData && (m_fixed[3] & (kName | kComment | kHeaderCrc)) == 0) {
    return fail(Failure::kCutInData, kTruncated);
  }
  return endOfHeaders();
}

// No further header: the first member's absence means the package is not
// gzip; a later one's is the end of the stream, whatever follows.
GzipMembers::Step GzipMembers::endOfHeaders() {
  m_phase = Phase::kDone;
  return m_member == 1 ? Step::kNotGzip : Step::kEnd;
}

GzipMembers::Step GzipMembers::inflateBody(unsigned char* out, size_t capacity, size_t* produced) {
  inflate_state& state = *m_state;
  state.next_in = m_input.get() + m_inPos;
  state.avail_in = static_cast<uint32_t>(available());
  state.next_out = out;
  state.avail_out = static_cast<uint32_t>(capacity);
  const int result = isal_inflate(&state);
  *produced = static_cast<size_t>(state.next_out - out);
  m_inPos = static_cast<size_t>(state.next_in - m_input.get());
  if (result < 0) return fail(Failure::kBadData, "gzip decompression failed");
  if (state.block_state == ISAL_BLOCK_FINISH) {
    // Whole bytes the inflater took into its bit buffer belong to the trailer.
    m_inPos -= static_cast<size_t>(state.read_in_length / 8);
    m_trailerHave = 0;
    m_phase = Phase::kTrailer;
    return Step::kOutputFull;  // not seen by the caller: the trailer follows
  }
  if (state.avail_out == 0) return Step::kOutputFull;
  if (m_bInputEnded) return fail(Failure::kCutInData, kTruncated);
  if (available() > kUnusedMax) return fail(Failure::kBadData, "inflater stalled");
  return Step::kNeedInput;
}

GzipMembers::Step GzipMembers::checkTrailer() {
  size_t take = std::min(available(), sizeof m_trailer - m_trailerHave);
  takeBytes(m_trailer + m_trailerHave, take);
  m_trailerHave += take;
  if (m_trailerHave < sizeof m_trailer) {
    if (m_bInputEnded) return fail(Failure::kCutInTrailer, kTruncated);
    return Step::kNeedInput;
  }
  const uint32_t crc = LittleEndian32(m_trailer), size = LittleEndian32(m_trailer + 4);
  if (m_state->crc != crc) {
    return fail(Failure::kBadTrailer, Format("gzip member %u: CRC-32 %08x, its trailer says %08x",
                                             m_member, m_state->crc, crc));
  }
  if (m_state->total_out != size) {
    return fail(Failure::kBadTrailer,
                Format("gzip member %u: %u bytes (modulo 2^32), its trailer says %u", m_member,
                       m_state->total_out, size));
  }
  m_phase = Phase::kHeader;
  m_headerField = kFixed;
  m_fixedHave = 0;
  ++m_member;
  return Step::kMemberEnd;
}

GzipMembers::Step GzipMembers::fail(Failure failure, const std::string& text) {
  m_failure = failure;
  m_failureText = text;
  m_phase = Phase::kDone;
  return Step::kFailed;
}

}  // namespace ev
