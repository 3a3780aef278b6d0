// The source reader: moves the package file into the archive reader.
//
// copyWithHash runs on the thread that called ExtractWithHash, which it names
// "USBReadThread". It opens the package, starts the extract thread over a
// ReadAndExtractBuffer on its own stack, and fills the ring from the file
// until end of file, an abort request, a read failure, a failure status from
// the extract thread, the single-file early end or the extract thread
// stopping; then it marks the end of its data, closes the file and joins the
// extract thread. The file is read a chunk at a time (extract/package_reads.h).
//
// Where the library is built with ISA-L, the reader inflates the package's
// gzip layer itself (extract/tar_inflater.h) and the ring carries the tar;
// otherwise, or when the package does not start as gzip, the ring carries
// the package as it is and libarchive inflates it. Either way the extract
// thread reads the ring through extract/archive_input.h.
//
// The status it hands back is the one the extract thread left in the ring,
// or PKG_ERR03 when the package cannot be opened or sized, the extract
// thread cannot be started, or the package's gzip layer proves damaged
// beyond the point where the extract thread stopped reading.
#ifndef EXTRACT_SOURCE_READER_H_
#define EXTRACT_SOURCE_READER_H_

#include "extract_verify_export.h"
#include "status/kalu_status.h"

EV_EXPORT void copyWithHash(_KALU_Error& status);

#endif  // EXTRACT_SOURCE_READER_H_
