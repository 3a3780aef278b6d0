// The cost of an extraction's per-file resources alone, without any data
// work: for every regular file in DIR, two threads that wait on a condition
// until the end, and the file's bytes (at most 16 MiB) touched in the one
// ring that the files use in turn; then, file by file in order, the threads
// are woken and joined. That is what a run spends on each file besides
// inflating, hashing and writing it.
//
//   file_threads_floor DIR
//   file_threads_floor --limit   files in flight until the system refuses a
//                                thread (the address space of a 32-bit run)
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

// Starts a file's two threads; false when the system refuses one.
bool StartFile(std::vector<std::unique_ptr<FileResources>>& files) {
  auto file = std::make_unique<FileResources>();
  for (pthread_t& thread : file->threads) {
    if (pthread_create(&thread, nullptr, WaitForEnd, file.get()) != 0) break;
    ++file->started;
  }
  bool whole = file->started == 2;
  files.push_back(std::move(file));
  return whole;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s DIR | --limit\n", argv[0]);
    return 2;
  }
  std::unique_ptr<unsigned char[]> ring(new unsigned char[kRingSize]);
  std::vector<std::unique_ptr<FileResources>> files;
  if (std::strcmp(argv[1], "--limit") == 0) {
    while (StartFile(files)) {
    }
    printf("%zu files in flight, the next one refused\n", files.size() - 1);
  } else {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
      if (!entry.is_regular_file()) continue;
      std::memset(ring.get(), 1, std::min<uintmax_t>(entry.file_size(), kRingSize));
      StartFile(files);
    }
    if (error) {
      fprintf(stderr, "%s: %s\n", argv[1], error.message().c_str());
      return 1;
    }
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
