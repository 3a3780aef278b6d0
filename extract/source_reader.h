// The source reader: moves the package file into the archive reader.
//
// copyWithHash runs on the thread that called ExtractWithHash, which it names
// "USBReadThread". It opens the package, starts the extract thread over a
// ReadAndExtractBuffer on its own stack, fills chunks from the file (whole
// chunks as 64 blocks of 512 bytes while the file's size promises them, the
// tail with plain reads) until end of file, an abort request, a read failure,
// a failure status from the extract thread, the single-file early end or the
// extract thread stopping, then marks the end of its data, closes the file
// and joins the extract thread. The status it hands back is the one the
// extract thread left in the buffer, or PKG_ERR03 when the package cannot be
// opened or sized, or the extract thread cannot be started.
//
// open_arch, read_arch and close_arch are the archive reader's callbacks,
// called on the extract thread only. Their client data points to a slot
// holding the ReadAndExtractBuffer pointer. read_arch hands over one chunk at
// a time without copying; the chunk stays reserved until the next call.
#ifndef EXTRACT_SOURCE_READER_H_
#define EXTRACT_SOURCE_READER_H_

#include <archive.h>

#include <cstdint>

#include "extract_verify_export.h"
#include "status/kalu_status.h"

class ReadAndExtractBuffer;

// What the source reader hands to the extract thread; it lives on the
// reader's stack until the extract thread has been joined.
struct ExtractThreadArgs {
  ReadAndExtractBuffer* buffer;
  int32_t priority;  // the reader's own scheduling priority
};

EV_EXPORT void copyWithHash(_KALU_Error& status);

int open_arch(archive* a, void* clientData);
la_ssize_t read_arch(archive* a, void* clientData, const void** data);
int close_arch(archive* a, void* clientData);

#endif  // EXTRACT_SOURCE_READER_H_
