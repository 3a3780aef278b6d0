#include "platform/thread.h"

#include <sched.h>

#if defined(__QNXNTO__)
#include <process.h>
#include <sys/neutrino.h>
#endif

namespace ev::platform {

int StartThread(pthread_t* id, void* (*entry)(void*), void* argument) {
  return pthread_create(id, nullptr, entry, argument);
}

void* JoinThread(pthread_t id) {
  void* result = nullptr;
  pthread_join(id, &result);
  return result;
}

void SetCurrentThreadName(const char* name) {
#if defined(__QNXNTO__)
  pthread_setname_np(pthread_self(), name);
#else
  char shortName[16];
  size_t i = 0;
  for (; name[i] != '\0' && i < sizeof shortName - 1; ++i) shortName[i] = name[i];
  shortName[i] = '\0';
  pthread_setname_np(pthread_self(), shortName);
#endif
}

int CurrentThreadPriority() {
#if defined(__QNXNTO__)
  return getprio(0);
#else
  int policy = 0;
  struct sched_param param {};
  if (pthread_getschedparam(pthread_self(), &policy, &param) != 0) return 0;
  return param.sched_priority;
#endif
}

int SetCurrentThreadPriority(int priority) {
  return pthread_setschedprio(pthread_self(), priority);
}

}  // namespace ev::platform
