#include "platform/memory.h"

#include <sys/mman.h>

#include <cstdint>

namespace ev::platform {

namespace {

void* MapAnonymous(size_t bytes) {
  void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return pages == MAP_FAILED ? nullptr : pages;
}

}  // namespace

// A block of whole huge pages is mapped one huge page larger, and the ends
// that fall outside the aligned block are unmapped again, so that the block
// is exactly what UnmapPages is later given.
void* MapPages(size_t bytes) {
#if defined(MADV_HUGEPAGE)
  const size_t kHugePage = size_t{2} << 20;
  if (bytes == 0 || bytes % kHugePage != 0) return MapAnonymous(bytes);
  unsigned char* raw = static_cast<unsigned char*>(MapAnonymous(bytes + kHugePage));
  if (raw == nullptr) return nullptr;
  const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
  const size_t head = ((start + kHugePage - 1) & ~(kHugePage - 1)) - start;
  unsigned char* pages = raw + head;
  if (head > 0) munmap(raw, head);
  munmap(pages + bytes, kHugePage - head);  // head < kHugePage
  // Only advice: where huge pages are off or scarce the block keeps small ones.
  madvise(pages, bytes, MADV_HUGEPAGE);
  return pages;
#else
  return MapAnonymous(bytes);
#endif
}

void UnmapPages(void* pages, size_t bytes) {
  if (pages != nullptr) munmap(pages, bytes);
}

}  // namespace ev::platform
