// The two threads of every extracted file, and their end.
//
// StartFileThreads starts, for a new HashAndWriteBuffer, hashThread (feeds
// the chunks to the file's hash object) and writerThread (writes them to the
// destination file and gives them back to the chunk pool), appends the
// buffer to g_vectorOfTHashAndWriteBuffer and keeps a record of its own of
// what joining them needs: their ids and which of them started. Each thread
// gets its own heap argument block and frees it; when a thread cannot be
// started, the starter frees the block and calls stopCopy() on the buffer.
//
// A failed write never ends the process: the writer prints and logs the
// failure, stops writing that file, keeps taking and giving back chunks so
// that the filler and the hasher never block, and hands the failure to
// whoever joins it.
//
// StartFileThreads, WaitForChildThreads and ClearHashAndWriteBuffer run on
// the extract thread only, as do all uses of g_vectorOfTHashAndWriteBuffer,
// g_hashResult and the records.
#ifndef EXTRACT_FILE_THREADS_H_
#define EXTRACT_FILE_THREADS_H_

class HashAndWriteBuffer;
class IHash;

namespace ev {

struct HashThreadArgs {
  HashAndWriteBuffer* buffer;
  IHash* hash;
  int basePriority;  // the thread asks for basePriority - 1
};

struct WriterThreadArgs {
  HashAndWriteBuffer* buffer;
  int fd;
};

// Thread entries; each takes ownership of its heap argument block.
void* hashThread(void* argument);
void* writerThread(void* argument);

// Starts both threads of a new buffer and appends it to the run's list
// (extract thread); a refused thread is printed and logged and stops the
// buffer's filler.
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

}  // namespace ev

#endif  // EXTRACT_FILE_THREADS_H_
