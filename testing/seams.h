// Fault-injection hooks for the tests.
//
// These exist only in the objects that the tests link: the subsystems that
// carry hooks are compiled a second time with EV_TEST_SEAMS for the test
// archives, and the shared library is made from the copy without them, so no
// client of the library can reach them. Each setter may be called from any
// thread; a test sets a hook, runs the code under test and resets it.
#ifndef TESTING_SEAMS_H_
#define TESTING_SEAMS_H_

#include <pthread.h>

#include <cstddef>
#include <cstdint>

namespace platform {

// Once `bytes` more bytes have been read through ReadBlocks and Read, every
// further read fails with EIO. A negative value turns the fault off.
void InjectReadFailureAfter(int64_t bytes);

// While set, OpenCommandOutput fails with EAGAIN without starting anything.
void InjectCommandStartFailure(bool fail);

}  // namespace platform

// The initialisation and destruction calls of Mutex and Cond, so that a test
// can make them fail; null restores the default.
namespace sync_internal {

using MutexInit = int (*)(pthread_mutex_t*);
using CondInit = int (*)(pthread_cond_t*);
using MutexDestroy = int (*)(pthread_mutex_t*);
using CondDestroy = int (*)(pthread_cond_t*);

void SetInitFunctions(MutexInit mutexInit, CondInit condInit);
void SetDestroyFunctions(MutexDestroy mutexDestroy, CondDestroy condDestroy);

}  // namespace sync_internal

// The allocator of CKALUStatus's name table. It returns null instead of
// throwing; a failing one reaches the "::ENUM INIT FAILED::" path.
namespace kalu_status_internal {

using TableAllocator = char* (*)(std::size_t bytes);

// Installs `allocator` (null restores the default) and returns the previous one.
TableAllocator SetTableAllocator(TableAllocator allocator);

}  // namespace kalu_status_internal

#endif  // TESTING_SEAMS_H_
