#include "extract/archive_input.h"

#include <cerrno>

#include "extract_verify/buffers.h"

namespace ev {

int OpenPackageArchive(archive* reader, ArchiveInput* input) {
  archive_read_support_format_tar(reader);
  archive_read_support_filter_gzip(reader);
  return archive_read_open(reader, input, open_arch, read_arch, close_arch);
}

int open_arch(archive*, void*) { return ARCHIVE_OK; }

la_ssize_t read_arch(archive* a, void* clientData, const void** data) {
  ArchiveInput* input = static_cast<ArchiveInput*>(clientData);
  // The chunk handed out by the previous call is given back only now: the
  // archive reader reads it in place until it asks for the next one.
  if (input->chunkOnLoan) input->ring->extractReady();
  ExtractChunk chunk = input->ring->nextExtract();
  input->chunkOnLoan = chunk.data != nullptr;
  if (chunk.failure != nullptr) {
    archive_set_error(a, EIO, "%s", chunk.failure);
    input->failureDelivered = true;
    *data = nullptr;
    return ARCHIVE_FATAL;
  }
  *data = chunk.data;
  return static_cast<la_ssize_t>(chunk.length);
}

int close_arch(archive*, void*) { return ARCHIVE_OK; }

}  // namespace ev
