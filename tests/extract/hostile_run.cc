#include "tests/extract/hostile_run.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace runtest {

namespace fs = std::filesystem;

namespace {

std::set<std::string> Listing(const std::string& directory) {
  std::set<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

bool IsManifestPlaceholder(const package::Entry& entry) {
  return entry.name == "Version.der" && entry.kind == package::EntryKind::kRegular &&
         entry.source == package::Entry::Source::kText && entry.text.empty();
}

// Waits for the run to end; a run that outlives `bound` is a hang, which no
// test can recover from.
void AwaitOrAbort(const std::atomic<bool>& done, std::chrono::seconds bound) {
  const auto deadline = std::chrono::steady_clock::now() + bound;
  while (!done) {
    if (std::chrono::steady_clock::now() > deadline) {
      fprintf(stderr, "extraction run still going after %lld s: hang\n",
              static_cast<long long>(bound.count()));
      std::abort();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace

Digests ManifestDigests(const std::vector<package::Entry>& entries) {
  Digests digests;
  for (const package::Entry& entry : entries) {
    if (entry.kind != package::EntryKind::kRegular || IsManifestPlaceholder(entry)) continue;
    digests.emplace(entry.name, package::Sha256Hex(testsupport::EntryData(entry)));
  }
  return digests;
}

std::string Gunzip(const std::string& gz) {
  z_stream stream{};
  if (inflateInit2(&stream, 15 + 16) != Z_OK) throw std::runtime_error("inflateInit2 failed");
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gz.data()));
  stream.avail_in = static_cast<uInt>(gz.size());
  std::string out;
  char buffer[65536];
  int result;
  do {
    stream.next_out = reinterpret_cast<Bytef*>(buffer);
    stream.avail_out = sizeof buffer;
    result = inflate(&stream, Z_NO_FLUSH);
    out.append(buffer, sizeof buffer - stream.avail_out);
  } while (result == Z_OK);
  inflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("not a whole gzip stream");
  return out;
}

int RoundsFromEnvironment(const char* name, int fallback) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return fallback;
  int rounds = std::atoi(value);
  return rounds > 0 ? rounds : fallback;
}

ProcessLimit::ProcessLimit(int resource, uint64_t value) : m_resource(resource) {
  rlimit limit{};
  getrlimit(resource, &limit);
  m_saved = limit.rlim_cur;
  limit.rlim_cur = value;
  EXPECT_EQ(setrlimit(resource, &limit), 0) << "limit " << resource;
}

ProcessLimit::~ProcessLimit() {
  rlimit limit{};
  getrlimit(m_resource, &limit);
  limit.rlim_cur = m_saved;
  setrlimit(m_resource, &limit);
}

HostileRunTest::HostileRunTest() : m_sentinel(m_dir.file("sentinel")) {
  mkdir(m_sentinel.c_str(), 0755);
}

RunResult HostileRunTest::BoundedRun(const std::string& packagePath, const char* interested,
                                     bool exclude, const std::function<void()>& duringRun,
                                     std::chrono::seconds bound) {
  m_dirBeforeRun = Listing(m_dir.path());
  return RunWith(certFile(), packagePath, interested, exclude,
                 [&](const std::atomic<bool>& done) {
                   if (duringRun) duringRun();
                   AwaitOrAbort(done, bound);
                 });
}

void HostileRunTest::ExpectSafeOutcome(const RunResult& run, const Digests& expected,
                                       const std::string& manifestText,
                                       const std::string& context) {
  EXPECT_TRUE(fs::is_empty(m_sentinel)) << context << ": written beside the destination";
  EXPECT_EQ(Listing(m_dir.path()), m_dirBeforeRun) << context << ": test directory changed";

  std::set<std::string> written;
  for (auto it = fs::recursive_directory_iterator(m_dest); it != fs::end(it); ++it) {
    const fs::file_status status = it->symlink_status();
    const std::string path = fs::relative(it->path(), m_dest).string();
    if (fs::is_directory(status)) continue;
    if (!fs::is_regular_file(status)) {
      ADD_FAILURE() << context << ": " << path << " is neither a file nor a directory";
      continue;
    }
    written.insert(path);
  }
  if (run.status != KALU_NO_ERR) return;

  for (const std::string& path : written) {
    const std::string content = testsupport::ReadFile(m_dest + "/" + path);
    if (path == "Version.inf") {
      EXPECT_EQ(content, manifestText) << context;
      continue;
    }
    auto it = expected.find(path);
    if (it == expected.end()) {
      ADD_FAILURE() << context << ": success, yet " << path << " is not in the manifest";
    } else {
      EXPECT_EQ(package::Sha256Hex(content), it->second)
          << context << ": success, yet " << path << " does not match the manifest";
    }
  }
}

}  // namespace runtest
