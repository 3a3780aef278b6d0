// Run state that only the extraction units share among themselves.
//
// The progress counters and the stage are written by the run's own threads
// and may be read by any thread through GetExtractionProgress and
// GetExtractionStage.
#ifndef EXTRACT_RUN_STATE_INTERNAL_H_
#define EXTRACT_RUN_STATE_INTERNAL_H_

#include <cstdint>

namespace ev::extract_progress {

// A run's source is about to be opened: nothing known yet, reading starts.
void Begin();
// The source is open and holds `packageSize` bytes.
void SourceOpened(uint64_t packageSize);
// `total` bytes of the source have been handed to the archive reader so far.
void BytesRead(uint64_t total);
// The reader has stopped reading; the run is finishing its files.
void ReadingDone();
// One more file has been written, hashed and its digest recorded.
void FileFinished();
// The run is over and about to return its status.
void RunDone();

}  // namespace ev::extract_progress

#endif  // EXTRACT_RUN_STATE_INTERNAL_H_
