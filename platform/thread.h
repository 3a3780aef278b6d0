// Starting and joining threads, their names and scheduling priority.
//
// On the target: pthread_create, pthread_join, pthread_setname_np, getprio
// and pthread_setschedprio. On
// Linux the priority is the static scheduling priority of the calling thread
// (0 under the default policy), and setting a priority the policy does not
// allow simply fails. Each call acts on the calling thread unless a thread is
// named; callers that are told to ignore a failure do so.
#ifndef PLATFORM_THREAD_H_
#define PLATFORM_THREAD_H_

#include <pthread.h>

namespace ev::platform {

// Starts entry(argument) on a new thread with default attributes; 0 or the
// error number of the refusal. Any thread.
int StartThread(pthread_t* id, void* (*entry)(void*), void* argument);

// Waits for a thread that StartThread started, once; what its entry
// returned. Any thread but the one joined.
void* JoinThread(pthread_t id);

// Gives the calling thread a name (at most 15 characters are kept on Linux).
void SetCurrentThreadName(const char* name);

// Scheduling priority of the calling thread.
int CurrentThreadPriority();

// Asks for a new priority of the calling thread; returns 0 or an error number.
int SetCurrentThreadPriority(int priority);

}  // namespace ev::platform

#endif  // PLATFORM_THREAD_H_
