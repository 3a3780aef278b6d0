// The two events that end a run before its package has been walked.
//
// A client's abort (AbortExtraction, from any thread) and a file that cannot
// be written (a writer thread) both make the rest of the run pointless: an
// aborted run fails whatever its files hold, and a run with a file missing
// on disk fails with 38 in any case. The source reader polls for them before
// each chunk it reads, the extract thread before each header and each chunk
// it inflates, and the end of the file pipelines before each join, so a run
// ends within one chunk's work of either event, whatever stage it is in.
//
// Begin() is called by the source reader before it starts the extract thread;
// every other function may be called from any thread of the run.
#ifndef EXTRACT_RUN_STOP_H_
#define EXTRACT_RUN_STOP_H_

#include "extract_verify/status.h"

namespace ev::run_stop {

// A new run: no write has failed, no abort has been seen.
void Begin();

// A writer thread could not write its file.
void FileWriteFailed();
bool WriteFailed();

// Whether the client has asked for an abort; a true answer is remembered
// for AbortSeen. Any thread.
bool AbortRequested();
// Whether a thread of this run has seen the abort.
bool AbortSeen();
// Prints and logs "Extraction Interrupted." the first time it is called in
// a run. Source reader only, so that the line is the reader's wherever the
// abort was seen.
void ReportAbort();

// An abort has been asked for or a file could not be written.
bool Requested();

// Whether the source reader stops before its next chunk: the extract thread
// has failed (`runStatus`), the single selected file is done, or the client
// has aborted, which is then reported and sets `status` to PKG_ERR03.
// Source reader only.
bool ReaderStops(_KALU_Error runStatus, _KALU_Error* status);

}  // namespace ev::run_stop

#endif  // EXTRACT_RUN_STOP_H_
