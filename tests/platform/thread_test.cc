// Thread naming and scheduling priority of the calling thread, on a thread
// of its own so that the test runner's thread is left untouched.
#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(Thread, NamesTheCallerAndARefusedPriorityChangeLeavesItsPolicyAlone) {
  char named[16] = {}, truncated[16] = {};
  int policy = -1, before = -1, result = 0, after = -1, policyAfter = -1;
  std::thread([&] {
    platform::SetCurrentThreadName("USBReadThread");
    pthread_getname_np(pthread_self(), named, sizeof named);
    platform::SetCurrentThreadName("a-name-longer-than-fifteen");
    pthread_getname_np(pthread_self(), truncated, sizeof truncated);
    struct sched_param param {};
    pthread_getschedparam(pthread_self(), &policy, &param);
    before = platform::CurrentThreadPriority();
    result = platform::SetCurrentThreadPriority(before - 1);  // as the extract thread asks
    after = platform::CurrentThreadPriority();
    pthread_getschedparam(pthread_self(), &policyAfter, &param);
  }).join();
  EXPECT_STREQ(named, "USBReadThread");
  EXPECT_STREQ(truncated, "a-name-longer-t");
  if (policy != SCHED_OTHER) GTEST_SKIP() << "runner not under the default policy";
  EXPECT_EQ(before, 0);
  EXPECT_NE(result, 0);
  EXPECT_EQ(after, 0);
  EXPECT_EQ(policyAfter, SCHED_OTHER);
}

}  // namespace
