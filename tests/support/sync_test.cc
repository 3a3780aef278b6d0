// Mutex and Cond: reports of a failed initialisation (with an exception) and
// of a failed destruction (without).
#include "support/sync.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "testing/seams.h"
#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using testsupport::OutputCapture;
using Texts = std::vector<std::string>;

// What() of the runtime error that `make` throws, or "" without one.
template <typename Make>
std::string ErrorOf(Make make) {
  try {
    make();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(Sync, FailedInitIsPrintedLoggedAndThrown) {
  LogCapture log;
  OutputCapture out;
  sync_internal::SetInitFunctions([](pthread_mutex_t*) { return EAGAIN; }, nullptr);
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "Failed to create mutex");
  sync_internal::SetInitFunctions(nullptr, [](pthread_cond_t*) { return ENOMEM; });
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "");
  EXPECT_EQ(ErrorOf([] { Cond cond; }), "Failed to create cond");
  sync_internal::SetInitFunctions(nullptr, nullptr);
  EXPECT_EQ(out.Finish(), "Failed to create mutex: 11\nFailed to create cond: 12\n");
  EXPECT_EQ(log.Described(),
            (Texts{"31:Mutex:Failed to create mutex: 11 ", "31:Cond:Failed to create cond: 12"}));
}

TEST(Sync, FailedDestroyIsReportedWithoutThrowing) {
  LogCapture log;
  OutputCapture out;
  sync_internal::SetDestroyFunctions(
      [](pthread_mutex_t* mutex) { pthread_mutex_destroy(mutex); return EBUSY; },
      [](pthread_cond_t* cond) { pthread_cond_destroy(cond); return EINVAL; });
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "");
  EXPECT_EQ(ErrorOf([] { Cond cond; }), "");
  sync_internal::SetDestroyFunctions(nullptr, nullptr);
  EXPECT_EQ(out.Finish(), "Failed to destroy mutex: 16\nFailed to destroy cond: 22\n");
  EXPECT_EQ(log.Described(), (Texts{"31:~Mutex:Failed to destroy mutex: 16",
                                    "31:~Cond:Failed to destroy cond: 22"}));
}

}  // namespace
