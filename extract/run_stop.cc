#include "extract/run_stop.h"

#include <atomic>
#include <cstdio>

#include "extract_verify/extraction.h"
#include "platform/log.h"

namespace ev::run_stop {

namespace {

std::atomic<bool> g_bWriteFailed{false};
std::atomic<bool> g_bAbortSeen{false};
bool g_bAbortReported = false;  // source reader only

}  // namespace

void Begin() {
  g_bWriteFailed = false;
  g_bAbortSeen = false;
  g_bAbortReported = false;
}

void FileWriteFailed() { g_bWriteFailed = true; }

bool WriteFailed() { return g_bWriteFailed; }

bool AbortRequested() {
  if (!g_bAbortExecution) return false;
  g_bAbortSeen = true;
  return true;
}

bool AbortSeen() { return g_bAbortSeen; }

void ReportAbort() {
  if (g_bAbortReported) return;
  g_bAbortReported = true;
  printf("Extraction Interrupted.\n");
  EV_LOG_AS("copyWithHash", kLogInfo, "Extraction Interrupted.");
}

bool Requested() { return AbortRequested() || g_bWriteFailed; }

bool ReaderStops(_KALU_Error runStatus, _KALU_Error* status) {
  if (runStatus != KALU_NO_ERR || g_isExtractionCompleted) return true;
  if (!AbortRequested()) return false;
  ReportAbort();
  *status = PKG_ERR03;
  return true;
}

}  // namespace ev::run_stop
