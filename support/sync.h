// Scoped owners of a POSIX mutex and condition variable, and a scoped hold
// of such a mutex.
//
// The constructors throw std::runtime_error when the object cannot be
// initialised (after printing and logging why); the destructors report a
// failed destroy and never throw. The owner must outlive every thread that
// uses the object. The conversions hand the underlying object to the
// pthread calls (on the target both are the platform's _sync object).
#ifndef SUPPORT_SYNC_H_
#define SUPPORT_SYNC_H_

#include <pthread.h>

#include "extract_verify_export.h"
#include "support/thread_annotations.h"

class EV_EXPORT CAPABILITY("mutex") Mutex {
 public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  operator pthread_mutex_t*() { return &m_mutex; }

  // The analysis cannot see into the pthread calls; these tell it.
  void lock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS { pthread_mutex_lock(&m_mutex); }
  void unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS { pthread_mutex_unlock(&m_mutex); }

 private:
  pthread_mutex_t m_mutex;
};

class EV_EXPORT Cond {
 public:
  Cond();
  ~Cond();
  Cond(const Cond&) = delete;
  Cond& operator=(const Cond&) = delete;

  operator pthread_cond_t*() { return &m_cond; }

 private:
  pthread_cond_t m_cond;
};

// Holds a Mutex for the lifetime of the object, the one way the library
// takes a lock. wait and signal act on a condition paired with that mutex.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~MutexLock() RELEASE() { m_mutex.unlock(); }
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

#endif  // SUPPORT_SYNC_H_
