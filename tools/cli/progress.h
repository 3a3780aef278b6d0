// The progress display of an extraction on a terminal.
//
// A thread of its own draws one line on standard error a few times a
// second: the bytes of the package read so far (GetExtractionProgress), of
// its size, with the rate and the time left. The library meanwhile prints
// its lines on standard output; when that output is handed over as a pipe,
// the same thread passes each complete line on to the real standard output
// and redraws the progress line below it, so that the two never end up on
// one line of the terminal.
//
// Created on the main thread right before the run, finished by the main
// thread after the run has returned (and after the pipe's write end has
// been closed, so that every line is passed on).
#ifndef TOOLS_CLI_PROGRESS_H_
#define TOOLS_CLI_PROGRESS_H_

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace cli {

class ProgressDisplay {
 public:
  // `pipeIn` is the read end of the pipe carrying the library's lines (the
  // display takes it and closes it), or -1; `forwardTo` is where they go.
  ProgressDisplay(int pipeIn, int forwardTo);
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  // Passes on what is left in the pipe, draws the last state and ends the
  // line. Later calls do nothing.
  void finish();

 private:
  void run();
  // Reads what the pipe holds now and passes complete lines on (erasing
  // the progress line); false at the end of the pipe.
  bool forwardAvailable();
  void forward(const std::string& text);
  void draw();
  void erase();

  int m_pipeIn;
  int m_forwardTo;
  std::string m_partialLine;
  bool m_drawn = false;
  bool m_sizeKnown = false;
  std::chrono::steady_clock::time_point m_sizeKnownAt;

  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stop = false;  // m_mutex
  std::thread m_thread;
};

}  // namespace cli

#endif  // TOOLS_CLI_PROGRESS_H_
