// The walk over the entries of an open package archive, on the extract thread.
//
// Each entry in turn: the signed manifest Version.der is verified and parsed
// into Version.inf in the destination; every other selected entry is judged
// (extract/entry_rules.h, and once the manifest has been parsed
// extract/entry_admission.h) and sent through a HashAndWriteBuffer of its own
// with a hash thread and a writer thread, which stay in
// g_vectorOfTHashAndWriteBuffer. The walk ends at the end of the archive, at
// the first fatal problem, or once the run is stopped (extract/run_stop.h),
// with its outcome in the read ring's status. Extract thread only.
#ifndef EXTRACT_ENTRY_WALKER_H_
#define EXTRACT_ENTRY_WALKER_H_

struct archive;
class ReadAndExtractBuffer;

namespace ev {

// Whether the walk went on to the archive's end.
bool WalkEntries(archive* reader, ReadAndExtractBuffer& buffer);

}  // namespace ev

#endif  // EXTRACT_ENTRY_WALKER_H_
