// The two threads of every extracted file, and their end.
//
// For each HashAndWriteBuffer the extract thread starts hashThread (feeds the
// chunks to the file's hash object) and writerThread (writes them to the
// destination file and frees them). Each thread gets its own heap argument
// block and frees it; when a thread cannot be started, the starter frees the
// block and calls stopCopy() on the buffer.
//
// A failed write never ends the process: the writer prints and logs the
// failure, stops writing that file, keeps taking and giving back chunks so
// that the filler and the hasher never block, and records the failure in the
// buffer (m_bWriteFailed).
//
// StartFileThreads, WaitForChildThreads and ClearHashAndWriteBuffer run on
// the extract thread only, as do all uses of g_vectorOfTHashAndWriteBuffer and g_hashResult.
#ifndef EXTRACT_FILE_THREADS_H_
#define EXTRACT_FILE_THREADS_H_

#include <cstdint>

class HashAndWriteBuffer;
class IHash;

struct HashThreadArgs {
  HashAndWriteBuffer* buffer;
  IHash* hash;
  int basePriority;  // the thread asks for basePriority - 1
};

struct WriterThreadArgs {
  HashAndWriteBuffer* buffer;
  int fd;
  uint64_t* bytesWritten;  // not used: the writer stores its total in the buffer
};

// Thread entries; each takes ownership of its heap argument block.
void* hashThread(void* argument);
void* writerThread(void* argument);

// Starts both threads of a new buffer (extract thread), recording their ids
// and which of them started; a refused thread is printed and logged and
// stops the buffer's filler.
void StartFileThreads(HashAndWriteBuffer* file);

// Finishes, joins and frees every buffer of the run in creation order,
// recording each digest as lower-case hex text in g_hashResult (the first
// file of a name wins), and empties the list. Returns true when a file on
// disk may not hold what was hashed: its writer failed, one of its threads
// never ran, or a later file of the run was written over it with other data.
bool WaitForChildThreads();

// Ends every buffer's threads, joins them, frees the buffers and empties the
// list; records no digest.
void ClearHashAndWriteBuffer();

#endif  // EXTRACT_FILE_THREADS_H_
