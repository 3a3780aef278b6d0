#include "extract/package_reads.h"

#include "extract/run_state_internal.h"
#include "platform/file_io.h"
#include "platform/log.h"

namespace ev {

namespace {

const size_t kBlockSize = 512;
const int kBlocksPerChunk = PackageReads::kChunkSize / kBlockSize;

}  // namespace

void PackageReads::restart() {
  m_remaining = m_size;
  m_blockCounter = 0;
  m_bytesRead = 0;
  m_bPlainReads = false;
}

int64_t PackageReads::read(unsigned char* chunk) {
  int64_t count = readOnce(chunk);
  if (count < 0) {
    printf("Failed to read contents\n");
    EV_LOG_AS("copyWithHash", kLogInfo, "Failed to read contents ");
    return -1;
  }
  m_bytesRead += static_cast<uint64_t>(count);
  extract_progress::BytesRead(m_bytesRead);
  return count;
}

int64_t PackageReads::readOnce(unsigned char* chunk) {
  if (m_remaining >= kChunkSize) {
    int blocks = platform::ReadBlocks(m_fd, kBlockSize, m_blockCounter, kBlocksPerChunk, chunk);
    if (blocks < 0) return -1;
    int64_t bytes = static_cast<int64_t>(blocks) * static_cast<int64_t>(kBlockSize);
    m_blockCounter += static_cast<uint64_t>(blocks);
    m_remaining -= bytes;
    return bytes;
  }
  // Block reads leave the descriptor's position unspecified; plain reads
  // go on right after the last block.
  if (!m_bPlainReads) {
    if (platform::SetPosition(m_fd, m_blockCounter * kBlockSize) != 0) return -1;
    m_bPlainReads = true;
  }
  return platform::Read(m_fd, chunk, kChunkSize);
}

}  // namespace ev
