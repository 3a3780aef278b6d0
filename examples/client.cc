// A client of the installed extract_verify library: one extraction run, as a
// head unit's update manager makes it, with a progress display and an abort
// on Ctrl-C.
//
//   client CERT PACKAGE DEST [FILE]
//
// verifies PACKAGE against the trusted certificates in CERT and unpacks it
// into the existing directory DEST (only FILE, when given).
//
// The run blocks the main thread, which the library uses to read the package.
// A watcher thread meanwhile draws the run's stage and progress on standard
// error and turns SIGINT into AbortExtraction(). The library prints its own
// lines on standard output.
#include <extract_verify/extract_verify.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <thread>

namespace {

std::atomic<bool> g_runOver{false};

sigset_t InterruptSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  return signals;
}

// One line, redrawn in place: the share of the package read while reading,
// then the files finished while the run hashes, writes and checks the rest.
void DrawProgress() {
  uint32_t filesFinished = 0;
  EV_ExtractionStage stage = GetExtractionStage(&filesFinished);
  uint64_t bytesRead = 0;
  uint64_t packageSize = 0;
  if (stage == EXTRACTION_STAGE_READING && GetExtractionProgress(&bytesRead, &packageSize)) {
    // A package whose size is unknown (a pipe) shows its bytes instead.
    if (packageSize > 0) {
      fprintf(stderr, "\rreading    %3u %%", static_cast<unsigned>(bytesRead * 100 / packageSize));
    } else {
      fprintf(stderr, "\rreading    %llu bytes", static_cast<unsigned long long>(bytesRead));
    }
  } else if (stage == EXTRACTION_STAGE_FINISHING) {
    fprintf(stderr, "\rfinishing  %u file(s) done", filesFinished);
  }
}

// SIGINT is blocked in every thread, so it stays pending until this thread
// takes it; waiting for it doubles as the redraw timer.
void WatchRun() {
  const sigset_t interrupt = InterruptSignal();
  const timespec redrawPeriod{0, 200 * 1000 * 1000};
  while (!g_runOver) {
    if (sigtimedwait(&interrupt, nullptr, &redrawPeriod) == SIGINT) {
      fprintf(stderr, "\nabort requested\n");
      AbortExtraction();
    }
    DrawProgress();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    fprintf(stderr, "usage: %s CERT PACKAGE DEST [FILE]\n", argv[0]);
    return 2;
  }
  const char* onlyFile = argc == 5 ? argv[4] : nullptr;

  // Blocked before any thread starts: the watcher and the library's threads
  // inherit the mask, so no thread is interrupted in the middle of a call.
  const sigset_t interrupt = InterruptSignal();
  pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
  std::thread watcher(WatchRun);

  _KALU_Error status = ExtractWithHash(argv[1], argv[2], argv[3], onlyFile, false);
  g_runOver = true;
  watcher.join();
  uint32_t filesFinished = 0;
  GetExtractionStage(&filesFinished);
  fprintf(stderr, "\rdone: %u file(s) finished\n", filesFinished);

  if (status != KALU_NO_ERR) {
    fprintf(stderr, "extraction failed: %s (%d)\n", CKALUStatus::EnumToStr(status), status);
    return 1;
  }
  // The verified manifest of the run stays readable until the next run.
  const EV_Version_TPN& manifest = *g_objKALU_Version_TPN;
  printf("package %s version %s: %zu file(s) verified\n", manifest.m_strPartNumber.c_str(),
         manifest.m_strVersionNumber.c_str(), g_hashResult.size());
  return 0;
}
