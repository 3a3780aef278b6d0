// A scoped hold of the library's Mutex (extract_verify/resources.h), with the
// waits and signals of a condition paired with it. Internal: clients lock
// nothing of the library's. Any thread; one hold per object.
#ifndef SUPPORT_SYNC_H_
#define SUPPORT_SYNC_H_

#include <pthread.h>

#include "extract_verify/resources.h"
#include "extract_verify/thread_annotations.h"

namespace ev {

// Holds a Mutex for the lifetime of the object, the one way the library
// takes a lock. wait and signal act on a condition paired with that mutex.
class EV_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) EV_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~MutexLock() EV_RELEASE() { m_mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void wait(Cond& cond) { pthread_cond_wait(cond, m_mutex); }
  // As wait, but returns at `deadline` (pthread_cond_timedwait's clock) at
  // the latest.
  void waitUntil(Cond& cond, const timespec& deadline) {
    pthread_cond_timedwait(cond, m_mutex, &deadline);
  }
  static void signal(Cond& cond) { pthread_cond_signal(cond); }

 private:
  Mutex& m_mutex;
};

// Test hooks, in the test build only: the initialisation and destruction
// calls of Mutex and Cond, so that a test can make them fail; null restores
// the default. Any thread, between runs.
using MutexInit = int (*)(pthread_mutex_t*);
using CondInit = int (*)(pthread_cond_t*);
using MutexDestroy = int (*)(pthread_mutex_t*);
using CondDestroy = int (*)(pthread_cond_t*);
void SetInitFunctions(MutexInit mutexInit, CondInit condInit);
void SetDestroyFunctions(MutexDestroy mutexDestroy, CondDestroy condDestroy);

}  // namespace ev

#endif  // SUPPORT_SYNC_H_
