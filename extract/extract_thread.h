// The extract thread: walks the package's archive entries.
//
// Started by the source reader with an ExtractThreadArgs block and joined by
// it; one per run. It opens the gzip tar over the read callbacks of the
// source reader and walks it (extract/entry_walker.h): the signed manifest
// Version.der is verified and parsed into Version.inf in the destination
// directory, and every other selected entry goes through its own
// HashAndWriteBuffer with a hash thread and a writer thread; once the
// manifest has been parsed, only entries that it lists with their declared
// size are written (extract/entry_admission.h). At the end of the archive,
// at the first fatal problem, or once the client aborts or a file cannot be
// written (extract/run_stop.h), it stops taking chunks from the read ring,
// finishes and joins every per-file pipeline (which records the digests in
// g_hashResult), syncs and ends. The outcome goes only into the read ring's
// status; the thread always returns null.
#ifndef EXTRACT_EXTRACT_THREAD_H_
#define EXTRACT_EXTRACT_THREAD_H_

namespace ev {

void* extractThread(void* argument);

}  // namespace ev

#endif  // EXTRACT_EXTRACT_THREAD_H_
