// Thread naming and scheduling priority of the calling thread. Each case runs
// on a thread of its own so that the test runner's thread is left untouched.
#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

std::string NameOfThisThread() {
  char name[64] = {0};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

TEST(ThreadName, NamesTheCallingThread) {
  std::string named, truncated;
  std::thread([&] {
    platform::SetCurrentThreadName("USBReadThread");
    named = NameOfThisThread();
    platform::SetCurrentThreadName("a-name-longer-than-fifteen");
    truncated = NameOfThisThread();
  }).join();
  EXPECT_EQ(named, "USBReadThread");
  EXPECT_EQ(truncated, "a-name-longer-t");
}

TEST(ThreadPriority, RefusedChangeLeavesTheDefaultPolicyAlone) {
  int policy = -1, before = -1, result = 0, after = -1, policyAfter = -1;
  std::thread([&] {
    struct sched_param param {};
    pthread_getschedparam(pthread_self(), &policy, &param);
    before = platform::CurrentThreadPriority();
    result = platform::SetCurrentThreadPriority(before - 1);  // as the extract thread asks
    after = platform::CurrentThreadPriority();
    pthread_getschedparam(pthread_self(), &policyAfter, &param);
  }).join();
  if (policy != SCHED_OTHER) GTEST_SKIP() << "runner not under the default policy";
  EXPECT_EQ(before, 0);
  EXPECT_NE(result, 0);
  EXPECT_EQ(after, 0);
  EXPECT_EQ(policyAfter, SCHED_OTHER);
}

}  // namespace
