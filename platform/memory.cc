#include "platform/memory.h"

#include <sys/mman.h>

namespace ev::platform {

void* MapPages(size_t bytes) {
  void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return pages == MAP_FAILED ? nullptr : pages;
}

void UnmapPages(void* pages, size_t bytes) {
  if (pages != nullptr) munmap(pages, bytes);
}

}  // namespace ev::platform
