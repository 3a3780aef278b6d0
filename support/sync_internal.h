// Test seam of Mutex and Cond: the initialisation and destruction calls they
// make, so that a test can make them fail. Not part of the public header;
// null restores the default.
#ifndef SUPPORT_SYNC_INTERNAL_H_
#define SUPPORT_SYNC_INTERNAL_H_

#include <pthread.h>

namespace sync_internal {

using MutexInit = int (*)(pthread_mutex_t*);
using CondInit = int (*)(pthread_cond_t*);
using MutexDestroy = int (*)(pthread_mutex_t*);
using CondDestroy = int (*)(pthread_cond_t*);

void SetInitFunctions(MutexInit mutexInit, CondInit condInit);
void SetDestroyFunctions(MutexDestroy mutexDestroy, CondDestroy condDestroy);

}  // namespace sync_internal

#endif  // SUPPORT_SYNC_INTERNAL_H_
