// The cost of an extraction's per-file resources alone, without any data
// work: for every regular file in DIR, a 16 MiB ring of which the file's
// bytes (at most the ring) are touched, and two threads that wait on a
// condition until the end; then, file by file in order, the threads are woken
// and joined and the ring freed. That is what a run spends on each file
// besides inflating, hashing and writing it.
//
//   file_threads_floor DIR
#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace {

const size_t kRingSize = size_t{512} * 32768;

struct FileResources {
  std::unique_ptr<unsigned char[]> ring;
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t end = PTHREAD_COND_INITIALIZER;
  bool ended = false;
  pthread_t threads[2];
  int started = 0;
};

void* WaitForEnd(void* argument) {
  auto* file = static_cast<FileResources*>(argument);
  pthread_mutex_lock(&file->lock);
  while (!file->ended) pthread_cond_wait(&file->end, &file->lock);
  pthread_mutex_unlock(&file->lock);
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  std::vector<std::unique_ptr<FileResources>> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
    if (!entry.is_regular_file()) continue;
    auto file = std::make_unique<FileResources>();
    file->ring.reset(new unsigned char[kRingSize]);
    std::memset(file->ring.get(), 1, std::min<uintmax_t>(entry.file_size(), kRingSize));
    for (pthread_t& thread : file->threads) {
      if (pthread_create(&thread, nullptr, WaitForEnd, file.get()) != 0) break;
      ++file->started;
    }
    files.push_back(std::move(file));
  }
  if (error) {
    fprintf(stderr, "%s: %s\n", argv[1], error.message().c_str());
    return 1;
  }
  for (auto& file : files) {
    pthread_mutex_lock(&file->lock);
    file->ended = true;
    pthread_cond_broadcast(&file->end);
    pthread_mutex_unlock(&file->lock);
    for (int i = 0; i < file->started; ++i) pthread_join(file->threads[i], nullptr);
    file.reset();
  }
  return 0;
}
