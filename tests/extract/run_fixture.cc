#include "tests/extract/run_fixture.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "extract/read_buffer.h"
#include "extract/run_state_internal.h"

namespace runtest {

const char kErrorReportPath[] = "/tmp/extract_verify_error.txt";
const char kReportUntouched[] = "untouched by the run";
const uint64_t kLargePackageBytes = uint64_t{24} << 20;

size_t CountEntries(const char* directory) {
  size_t count = 0;
  DIR* dir = opendir(directory);
  if (dir == nullptr) return 0;
  while (const dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

namespace {

// Open descriptors and threads of this process.
std::pair<size_t, size_t> CountResources() {
  return {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task")};
}

// The counts once they are back at `before`, or after a few seconds. A
// joined thread may still be listed for a moment while the kernel ends it.
std::pair<size_t, size_t> CountResourcesSettled(std::pair<size_t, size_t> before) {
  std::pair<size_t, size_t> now = CountResources();
  for (int i = 0; i < 500 && now != before; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    now = CountResources();
  }
  return now;
}

// Writes `content` into the FIFO once a reader has opened it; gives up when
// the run ends without opening it, so that the test cannot block.
void FeedFifo(const std::string& path, const std::string& content,
              const std::atomic<bool>& runDone) {
  int fd;
  while ((fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0) {
    if (errno != ENXIO || runDone) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  for (size_t done = 0; done < content.size();) {
    ssize_t n = write(fd, content.data() + done, content.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  close(fd);
}

}  // namespace

bool RunResult::Logged(int level, const std::string& function, const std::string& text) const {
  for (const testsupport::LogLine& line : logs) {
    if (line.level == level && line.function == function && line.text == text) return true;
  }
  return false;
}

ExtractionRunTest::ExtractionRunTest()
    : m_dest(m_dir.file("out")), m_signer(m_dir.file("ca.pem")) {
  // Signatures are checked at the signer's start of validity, which the
  // library converts in the local time zone.
  setenv("TZ", "UTC", 1);
  tzset();
  mkdir(m_dest.c_str(), 0755);
  // A sanitizer's runtime may start a thread of its own at the first thread
  // creation; let that happen before any count.
  std::thread([] {}).join();
}

ExtractionRunTest::~ExtractionRunTest() { unlink(kErrorReportPath); }

testsupport::BuiltPackage ExtractionRunTest::Build(std::vector<package::Entry> entries,
                                                   const testsupport::PackageOptions& options) {
  return testsupport::BuildSignedPackage(m_signer, m_dir.file("package.tar.gz"),
                                         std::move(entries), options);
}

RunResult ExtractionRunTest::Run(const std::string& packagePath, const char* interested,
                                 bool exclude) {
  return RunWith(certFile(), packagePath, interested, exclude, [](const std::atomic<bool>&) {});
}

RunResult ExtractionRunTest::RunStalled(const std::string& packagePath, const char* interested,
                                        const std::function<void()>& whileStalled) {
  const std::string fifo = m_dir.file("certificate-fifo.pem");
  EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string certificate = testsupport::ReadFile(certFile());
  bool stalled = false;
  RunResult result =
      RunWith(fifo, packagePath, interested, false, [&](const std::atomic<bool>& done) {
        const uint64_t fullRing =
            uint64_t{ReadAndExtractBuffer::kChunkCount} * ReadAndExtractBuffer::kChunkSize;
        uint64_t read = 0;
        uint64_t size = 0;
        while (!done && !(GetExtractionProgress(&read, &size) && read >= fullRing) &&
               GetExtractionStage(nullptr) != EXTRACTION_STAGE_FINISHING) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        stalled = !done;
        if (stalled) whileStalled();
        FeedFifo(fifo, certificate, done);
      });
  result.stalled = stalled;
  unlink(fifo.c_str());
  return result;
}

RunResult ExtractionRunTest::RunWith(
    const std::string& certFile, const std::string& packagePath, const char* interested,
    bool exclude, const std::function<void(const std::atomic<bool>& done)>& duringRun) {
  testsupport::WriteFile(kErrorReportPath, kReportUntouched);
  RunResult result;
  const auto before = CountResources();
  {
    testsupport::LogCapture logs;
    testsupport::OutputCapture output;
    extract_progress::Begin();  // no progress left from an earlier run
    std::atomic<bool> done{false};
    std::thread runner([&] {
      result.status = ExtractWithHash(certFile.c_str(), packagePath.c_str(), m_dest.c_str(),
                                      interested, exclude);
      char name[16] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      result.readerThreadName = name;
      done = true;
    });
    duringRun(done);
    runner.join();
    result.output = output.Finish();
    result.logs = logs.Lines();
  }
  EXPECT_TRUE(GetExtractionProgress(&result.bytesRead, &result.packageSize) ||
              result.status == PKG_ERR03);
  EXPECT_EQ(CountResourcesSettled(before), before)
      << "descriptors and threads before and after the run";
  return result;
}

void ExtractionRunTest::ClearDestination() {
  testsupport::RemoveTree(m_dest);
  mkdir(m_dest.c_str(), 0755);
}

std::string ExtractionRunTest::ErrorReport() {
  return testsupport::FileExists(kErrorReportPath) ? testsupport::ReadFile(kErrorReportPath)
                                                   : "(no report file)";
}

void ExpectInOrder(const std::string& output, const std::vector<std::string>& texts) {
  size_t at = 0;
  for (const std::string& text : texts) {
    size_t found = output.find(text, at);
    ASSERT_NE(found, std::string::npos) << "\"" << text << "\" missing or out of order in:\n"
                                        << output;
    at = found + text.size();
  }
}

package::Entry LargeEntry(const std::string& name) {
  return package::Entry::Generated(name, kLargePackageBytes, 0xb16);
}

}  // namespace runtest
