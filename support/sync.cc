#include "support/sync.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "platform/log.h"

namespace {

int DefaultMutexInit(pthread_mutex_t* mutex) { return pthread_mutex_init(mutex, nullptr); }
int DefaultCondInit(pthread_cond_t* cond) { return pthread_cond_init(cond, nullptr); }
int DefaultMutexDestroy(pthread_mutex_t* mutex) { return pthread_mutex_destroy(mutex); }
int DefaultCondDestroy(pthread_cond_t* cond) { return pthread_cond_destroy(cond); }

#if defined(EV_TEST_SEAMS)
ev::MutexInit g_mutexInit = DefaultMutexInit;
ev::CondInit g_condInit = DefaultCondInit;
ev::MutexDestroy g_mutexDestroy = DefaultMutexDestroy;
ev::CondDestroy g_condDestroy = DefaultCondDestroy;
#else
// Without the test hooks the calls are fixed.
constexpr ev::MutexInit g_mutexInit = DefaultMutexInit;
constexpr ev::CondInit g_condInit = DefaultCondInit;
constexpr ev::MutexDestroy g_mutexDestroy = DefaultMutexDestroy;
constexpr ev::CondDestroy g_condDestroy = DefaultCondDestroy;
#endif

}  // namespace

#if defined(EV_TEST_SEAMS)
namespace ev {

void SetInitFunctions(MutexInit mutexInit, CondInit condInit) {
  g_mutexInit = mutexInit != nullptr ? mutexInit : DefaultMutexInit;
  g_condInit = condInit != nullptr ? condInit : DefaultCondInit;
}

void SetDestroyFunctions(MutexDestroy mutexDestroy, CondDestroy condDestroy) {
  g_mutexDestroy = mutexDestroy != nullptr ? mutexDestroy : DefaultMutexDestroy;
  g_condDestroy = condDestroy != nullptr ? condDestroy : DefaultCondDestroy;
}

}  // namespace ev
#endif

Mutex::Mutex() {
  std::memset(&m_mutex, 0, sizeof m_mutex);
  int result = g_mutexInit(&m_mutex);
  if (result != 0) {
    printf("Failed to create mutex: %d\n", result);
    EV_LOG_ERROR("Failed to create mutex: %d ", result);
    throw std::runtime_error("Failed to create mutex");
  }
}

Mutex::~Mutex() {
  int result = g_mutexDestroy(&m_mutex);
  if (result != 0) {
    printf("Failed to destroy mutex: %d\n", result);
    EV_LOG_ERROR("Failed to destroy mutex: %d", result);
  }
}

Cond::Cond() {
  std::memset(&m_cond, 0, sizeof m_cond);
  int result = g_condInit(&m_cond);
  if (result != 0) {
    printf("Failed to create cond: %d\n", result);
    EV_LOG_ERROR("Failed to create cond: %d", result);
    throw std::runtime_error("Failed to create cond");
  }
}

Cond::~Cond() {
  int result = g_condDestroy(&m_cond);
  if (result != 0) {
    printf("Failed to destroy cond: %d\n", result);
    EV_LOG_ERROR("Failed to destroy cond: %d", result);
  }
}
