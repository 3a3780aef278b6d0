// The scoped resource owners: FileHandle's report of a failed open and which
// descriptor it closes when; the archive owners' reports of a missing reader;
// Mutex and Cond's reports of a failed initialisation (with an exception) and
// of a failed destruction (without). The hash factory's names.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "extract_verify/hash.h"
#include "extract_verify/resources.h"
#include "support/sync.h"
#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using testsupport::OutputCapture;
using Texts = std::vector<std::string>;

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1 || errno != EBADF; }
int OpenSomething() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

TEST(FileHandle, NegativeDescriptorIsPrintedWhateverTheMaskAndLogged) {
  for (uint32_t mask : {0x80800000u, 0u}) {
    LogCapture log(mask);
    OutputCapture out;
    errno = ENOENT;
    { FileHandle handle(-1); }
    EXPECT_EQ(out.Finish(), "Error opening file. FD: -1 / Error no: 2 \n");
    EXPECT_EQ(log.Lines(), mask == 0
                               ? Texts{}
                               : Texts{"31:FileHandle:Error opening file. FD: -1 / Error no: 2 "});
  }
}

TEST(FileHandle, ClosesItsOwnDescriptorOnceAndNeverALaterOneOfTheSameNumber) {
  int fd = OpenSomething();
  { FileHandle handle(fd); }
  EXPECT_FALSE(IsOpen(fd));
  fd = OpenSomething();
  int reused = -1;
  {
    FileHandle handle(fd);
    EXPECT_EQ(handle.closeNow(), 0);
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_EQ(static_cast<int>(handle), -1);
    EXPECT_EQ(handle.closeNow(), -1);
    reused = OpenSomething();  // normally gets the number just freed
  }
  EXPECT_TRUE(IsOpen(reused));
  close(reused);
}

// A failed open on a reader is reported with libarchive's text by the runs.
TEST(ArchiveHandles, MissingReaderIsPrintedAndLoggedWithoutThrowing) {
  LogCapture log;
  OutputCapture out;
  {
    ArchiveObject none(nullptr);
    ArchiveFile file(nullptr, -30);
  }
  EXPECT_EQ(out.Finish(),
            "Failed to create archive object\nFailed to create archive file: (-30), a is NULL\n");
  EXPECT_EQ(log.Lines(),
            (Texts{"31:ArchiveObject:Failed to create archive object",
                   "31:ArchiveFile:Failed to create archive file: (-30), a is NULL "}));
}

TEST(MakeHash, ChoosesByTheExactNameOnly) {
  std::unique_ptr<IHash> none(makeHash("none"));
  ASSERT_NE(none, nullptr);
  none->finish();
  EXPECT_EQ(none->getHash().second, 0u);
  for (const char* name : {"SHA256", "sha256 ", "sha", ""}) {
    EXPECT_EQ(std::unique_ptr<IHash>(makeHash(name)), nullptr) << name;
  }
}

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

TEST(Sync, FailuresArePrintedAndLoggedAndOnlyAFailedInitThrows) {
  LogCapture log;
  OutputCapture out;
  ev::SetInitFunctions([](pthread_mutex_t*) { return EAGAIN; }, nullptr);
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "Failed to create mutex");
  ev::SetInitFunctions(nullptr, [](pthread_cond_t*) { return ENOMEM; });
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "");
  EXPECT_EQ(ErrorOf([] { Cond cond; }), "Failed to create cond");
  ev::SetInitFunctions(nullptr, nullptr);
  // The real destruction still runs; only its result is replaced.
  ev::SetDestroyFunctions(
      [](pthread_mutex_t* mutex) { return pthread_mutex_destroy(mutex) == 0 ? EBUSY : -1; },
      [](pthread_cond_t* cond) { return pthread_cond_destroy(cond) == 0 ? EINVAL : -1; });
  {  // a destructor that threw would end the process
    Mutex mutex;
    Cond cond;
  }
  ev::SetDestroyFunctions(nullptr, nullptr);
  EXPECT_EQ(out.Finish(),
            "Failed to create mutex: 11\nFailed to create cond: 12\n"
            "Failed to destroy cond: 22\nFailed to destroy mutex: 16\n");
  EXPECT_EQ(
      log.Lines(),
      (Texts{"31:Mutex:Failed to create mutex: 11 ", "31:Cond:Failed to create cond: 12",
             "31:~Cond:Failed to destroy cond: 22", "31:~Mutex:Failed to destroy mutex: 16"}));
}

}  // namespace
