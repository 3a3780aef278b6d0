#include "tests/extract/run_fixture.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "extract/run_state_internal.h"
#include "extract_verify/buffers.h"
#include "tests/testsupport/capture.h"

namespace runtest {

namespace fs = std::filesystem;

const char kErrorReportPath[] = "/tmp/extract_verify_error.txt";

namespace {

// Open descriptors and threads of this process, once they are back at
// `before` or after a few seconds: a joined thread may still be listed for a
// moment while the kernel ends it.
std::pair<size_t, size_t> CountResources(std::pair<size_t, size_t> before = {}) {
  std::pair<size_t, size_t> now;
  for (int i = 0; i < 500; ++i) {
    now = {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task")};
    if (now == before || before.first == 0) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return now;
}

std::set<std::string> Listing(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

// Writes `content` into the FIFO once a reader has opened it; gives up when
// the run ends without opening it, so that the test cannot block.
void FeedFifo(const std::string& path, const std::string& content, const std::atomic<bool>& done) {
  int fd;
  while ((fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0 && !done) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (fd < 0) return;
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (write(fd, content.data(), content.size()) < 0) perror("certificate FIFO");
  close(fd);
}

// Waits until `ready` holds or the run has ended; true in the first case. A
// run that outlives `bound` is a hang, which no test can recover from.
bool Await(const std::atomic<bool>& done, const std::function<bool()>& ready,
           std::chrono::seconds bound) {
  const auto deadline = std::chrono::steady_clock::now() + bound;
  while (!done && !ready()) {
    if (std::chrono::steady_clock::now() > deadline) {
      fprintf(stderr, "extraction run still going after %lld s: hang\n",
              static_cast<long long>(bound.count()));
      std::abort();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return !done;
}

}  // namespace

size_t CountEntries(const char* directory) {
  std::error_code unreadable;
  fs::directory_iterator entries(directory, unreadable);
  return unreadable ? 0 : static_cast<size_t>(std::distance(entries, fs::directory_iterator()));
}

bool RunResult::Logged(const std::string& line) const {
  return std::find(logs.begin(), logs.end(), line) != logs.end();
}

RunTest::RunTest() {
  // Signatures are checked at the signer's start of validity, which the
  // library converts in the local time zone.
  setenv("TZ", "UTC", 1);
  tzset();
  mkdir(m_dest.c_str(), 0755);
  mkdir(m_sentinel.c_str(), 0755);
  // A sanitizer's runtime may start a thread of its own at the first thread
  // creation; let that happen before any count.
  std::thread([] {}).join();
}

RunTest::~RunTest() { unlink(kErrorReportPath); }

testsupport::BuiltPackage RunTest::Build(std::vector<package::Entry> entries,
                                         const testsupport::PackageOptions& options) {
  m_expected = testsupport::ManifestDigests(entries, options);
  auto built = testsupport::BuildSignedPackage(m_signer, m_package, std::move(entries), options);
  m_manifestText = built.manifestText;
  return built;
}

RunResult RunTest::Run(const std::string& packagePath, const RunOptions& options) {
  const std::set<std::string> dirBefore = Listing(m_dir.path());
  const std::string fifo = m_dir.file("certificate-fifo.pem");
  if (options.stall && mkfifo(fifo.c_str(), 0600) != 0) ADD_FAILURE() << "mkfifo";
  unlink(kErrorReportPath);
  RunResult result;
  const auto before = CountResources();
  {
    testsupport::LogCapture logs;
    testsupport::OutputCapture output;
    ev::extract_progress::Begin();  // no progress left from an earlier run
    std::atomic<bool> done{false};
    std::thread runner([&] {
      result.status =
          ExtractWithHash((options.stall ? fifo : m_signer.certFile()).c_str(), packagePath.c_str(),
                          m_dest.c_str(), options.interested, options.exclude);
      char name[16] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      result.threadName = name;
      done = true;
    });
    // With `stall`, the run blocks at the FIFO until the reader has filled the
    // ring or read the whole package.
    const auto readerWaits = [&] {
      uint64_t read = 0, size = 0;
      const uint64_t ring =
          uint64_t{ReadAndExtractBuffer::kChunkCount} * ReadAndExtractBuffer::kChunkSize;
      return (GetExtractionProgress(&read, &size) && read >= ring) ||
             GetExtractionStage(nullptr) == EXTRACTION_STAGE_FINISHING;
    };
    result.stalled = options.stall && Await(done, readerWaits, options.bound);
    if (result.stalled) result.stalledStage = GetExtractionStage(nullptr);
    if (options.duringRun && (result.stalled || !options.stall)) options.duringRun();
    if (options.stall) FeedFifo(fifo, testsupport::ReadFile(m_signer.certFile()), done);
    Await(
        done, [] { return false; }, options.bound);
    runner.join();
    result.output = output.Finish();
    result.logs = logs.Lines();
  }
  unlink(fifo.c_str());
  EXPECT_TRUE(GetExtractionProgress(&result.bytesRead, &result.packageSize) ||
              result.status == PKG_ERR03);
  EXPECT_EQ(CountResources(before), before) << "descriptors and threads, before and after";
  ExpectSafeOutcome(result, dirBefore);
  return result;
}

void RunTest::ExpectSafeOutcome(const RunResult& run, const std::set<std::string>& dirBefore) {
  EXPECT_TRUE(fs::is_empty(m_sentinel)) << "written beside the destination";
  EXPECT_EQ(Listing(m_dir.path()), dirBefore) << "test directory changed";
  const std::string name = CKALUStatus::EnumToStr(run.status);
  const std::string line = "Error No :  " + std::to_string(run.status) + " / " + name;
  EXPECT_EQ(
      testsupport::FileExists(kErrorReportPath) ? testsupport::ReadFile(kErrorReportPath) : "",
      run.status == KALU_NO_ERR ? "" : name);
  EXPECT_EQ(run.Printed(line + "\n"), run.status != KALU_NO_ERR) << run.output;
  EXPECT_EQ(run.Logged("31:ExtractWithHash:" + line + " "), run.status != KALU_NO_ERR);
  std::error_code noDestination;
  for (auto it = fs::recursive_directory_iterator(m_dest, noDestination); it != fs::end(it); ++it) {
    const std::string path = it->path().lexically_relative(m_dest);
    if (m_planted.count(path) != 0) continue;
    if (it->is_symlink() || !(it->is_regular_file() || it->is_directory())) {
      ADD_FAILURE() << path << " is neither a file nor a directory";
    } else if (run.status == KALU_NO_ERR && it->is_regular_file()) {
      const std::string content = testsupport::ReadFile(it->path());
      if (path == "Version.inf") {
        EXPECT_EQ(content, m_manifestText);
      } else {
        EXPECT_EQ(package::Sha256Hex(content), m_expected[path]) << "success, yet " << path;
      }
    }
  }
}

void RunTest::ClearDestination() {
  testsupport::RemoveTree(m_dest);
  mkdir(m_dest.c_str(), 0755);
}

}  // namespace runtest
