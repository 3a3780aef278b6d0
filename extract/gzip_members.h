// The package's gzip layer, inflated with ISA-L in the source reader's stage.
//
// GzipMembers takes the package's bytes as the reader reads them and inflates
// them into output that the caller supplies, one gzip member after another.
// Members are framed as libarchive's gzip reader frames them, so that a
// package means the same on either route: a header is one that reader would
// accept (1f 8b, method 8, no reserved flag; an extra field, a name, a
// comment and a header CRC may follow, the last unchecked); after a member,
// anything that is not such a header ends the stream, unread. A package
// whose first bytes are no such header is not gzip at all (kNotGzip): the
// caller passes it on as it is. Unlike that reader, every member's trailer
// is checked: the CRC-32 and the size (ISIZE) of what it inflated to.
//
// The input is kept in a buffer of the decoder's own, refilled by the caller
// whenever decode() asks for more; the last bytes of the stream stay in
// front of it, because the inflater may have taken a member's trailer into
// its bit buffer before the member's end is known.
//
// One object per run, on the source reader's thread only.
#ifndef EXTRACT_GZIP_MEMBERS_H_
#define EXTRACT_GZIP_MEMBERS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct inflate_state;

namespace ev {

class GzipMembers {
 public:
  // Eight of the package's chunks.
  enum : size_t { kInputSize = 8 * 32768 };

  enum class Step {
    kOutputFull,  // the output given is full
    kNeedInput,   // refill with inputSpace()/inputAdded(), or inputEnded()
    kMemberEnd,   // a member ended, its trailer checked; more may follow
    kEnd,         // the stream ended (no further member header)
    kNotGzip,     // the package does not start with a gzip header
    kFailed,      // see failureText(); nothing more comes
  };

  GzipMembers();
  ~GzipMembers();
  GzipMembers(const GzipMembers&) = delete;
  GzipMembers& operator=(const GzipMembers&) = delete;

  // Where the next kInputSize (or fewer) bytes of the package go, once
  // decode() has asked for input.
  unsigned char* inputSpace();
  void inputAdded(size_t length);
  // The package has no more bytes: it ended, or could not be read further.
  void inputEnded();

  // Inflates into out[0, capacity) until the output is full, input is
  // needed, or a member or the stream ends; `produced` tells how many bytes
  // were written (some may be, whatever the step). With no room (capacity
  // 0) it reads headers only, and says kOutputFull once output is due.
  Step decode(unsigned char* out, size_t capacity, size_t* produced);

  // After kFailed: where the stream failed, and why in a few words.
  enum class Failure {
    kNone,
    kCutInData,     // the input ended inside a member's header or deflate data
    kBadData,       // the deflate data is not valid
    kCutInTrailer,  // the input ended after a member's deflate data
    kBadTrailer,    // the CRC-32 or size differs from the member's trailer
  };
  Failure failure() const { return m_failure; }
  const std::string& failureText() const { return m_failureText; }

 private:
  enum class Phase { kHeader, kBody, kTrailer, kDone };

  Step parseHeader();
  Step inflateBody(unsigned char* out, size_t capacity, size_t* produced);
  Step checkTrailer();
  Step fail(Failure failure, const std::string& text);
  Step endOfHeaders();
  bool takeBytes(unsigned char* into, size_t count);
  size_t available() const { return m_inEnd - m_inPos; }

  // History, input not yet used, room for kInputSize more.
  std::unique_ptr<unsigned char[]> m_input;
  size_t m_inPos;
  size_t m_inEnd;
  bool m_bInputEnded = false;

  std::unique_ptr<inflate_state> m_state;
  Phase m_phase = Phase::kHeader;
  uint32_t m_member = 1;  // of the header, body or trailer being read

  // Header fields in progress: a fixed part collected, then fields skipped.
  int m_headerField = 0;
  unsigned char m_fixed[10] = {};
  size_t m_fixedHave = 0;
  uint32_t m_skip = 0;  // bytes of the extra field or header CRC still to skip
  unsigned char m_trailer[8] = {};
  size_t m_trailerHave = 0;

  Failure m_failure = Failure::kNone;
  std::string m_failureText;
};

}  // namespace ev

#endif  // EXTRACT_GZIP_MEMBERS_H_
