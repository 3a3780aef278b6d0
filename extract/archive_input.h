// The archive reader's side of the read ring: libarchive's client callbacks.
//
// The extract thread opens libarchive over the ring with OpenPackageArchive:
// tar, plus libarchive's gzip filter, which inflates the package's gzip layer
// when the source reader passes the package on as it is (and, on either
// route, any further gzip layer inside it). open_arch, read_arch and
// close_arch get an ArchiveInput as their client data. read_arch hands over
// one chunk of the ring at a time without copying; the chunk stays reserved
// until the next call, which gives it back. An input that the reader ended
// as damaged ends the archive reader's input with a fatal error carrying the
// reader's text, instead of an end of data.
//
// ExtractThreadArgs and the ArchiveInput in it live on the source reader's
// stack until the extract thread has been joined; the callbacks run on the
// extract thread only, and the reader reads `failureDelivered` after the join.
#ifndef EXTRACT_ARCHIVE_INPUT_H_
#define EXTRACT_ARCHIVE_INPUT_H_

#include <archive.h>

#include <cstdint>

class ReadAndExtractBuffer;

namespace ev {

struct ArchiveInput {
  ReadAndExtractBuffer* ring;
  bool chunkOnLoan = false;       // read_arch handed out a chunk not yet given back
  bool failureDelivered = false;  // the reader's damaged end reached libarchive
};

// What the source reader hands to the extract thread.
struct ExtractThreadArgs {
  ArchiveInput input;
  int32_t priority;  // the reader's own scheduling priority
};

// archive_read_open over the ring; its result.
int OpenPackageArchive(archive* reader, ArchiveInput* input);

int open_arch(archive* a, void* clientData);
la_ssize_t read_arch(archive* a, void* clientData, const void** data);
int close_arch(archive* a, void* clientData);

}  // namespace ev

#endif  // EXTRACT_ARCHIVE_INPUT_H_
