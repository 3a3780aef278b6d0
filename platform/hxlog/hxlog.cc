#include "platform/hxlog/hxlog.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace {

uint32_t MaskFromEnvironment() {
  const char* text = std::getenv("HXLOG_MASK");
  if (text == nullptr) return 0;
  char* end = nullptr;
  unsigned long value = std::strtoul(text, &end, 16);
  return (end != text) ? static_cast<uint32_t>(value) : 0;
}

std::mutex g_sinkMutex;
HxLogSink g_sink = nullptr;
void* g_sinkContext = nullptr;

}  // namespace

LumLogParams g_LumLogParams{MaskFromEnvironment()};

void HxLogSetSink(HxLogSink sink, void* context) {
  std::lock_guard<std::mutex> lock(g_sinkMutex);
  g_sink = sink;
  g_sinkContext = context;
}

void HxLog(int sourceLine, int level, const char* functionName, const char* format, ...) {
  if (level < 0 || level > 31) return;
  if ((g_LumLogParams.logMask.load(std::memory_order_relaxed) & (1u << level)) == 0) return;

  char stackText[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int length = std::vsnprintf(stackText, sizeof stackText, format, args);
  va_end(args);
  std::string heapText;
  const char* text = stackText;
  if (length >= static_cast<int>(sizeof stackText)) {
    heapText.resize(static_cast<size_t>(length) + 1);
    std::vsnprintf(&heapText[0], heapText.size(), format, again);
    text = heapText.c_str();
  }
  va_end(again);
  if (length < 0) text = format;

  std::lock_guard<std::mutex> lock(g_sinkMutex);
  if (g_sink != nullptr) {
    g_sink(g_sinkContext, sourceLine, level, functionName, text);
    return;
  }
  // One line per message: a line end that the text carries itself is not doubled.
  std::string line(text);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  std::fprintf(stderr, "[HxLog %d] %s:%d %s\n", level, functionName ? functionName : "?",
               sourceLine, line.c_str());
}
