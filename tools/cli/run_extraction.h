// One extraction run as the tool performs it, shared by `extract` and
// `demo`: ExtractWithHash with the progress display on a terminal, the
// library's lines hidden on request, and Ctrl-C turned into an abort of the
// run. Main thread only; one run at a time, like the library itself.
#ifndef TOOLS_CLI_RUN_EXTRACTION_H_
#define TOOLS_CLI_RUN_EXTRACTION_H_

#include <string>

#include "extract_verify/status.h"

namespace cli {

struct ExtractionRequest {
  std::string certificate;
  std::string package;
  std::string destination;
  std::string fileName;  // with `selectsFile`: the one file, or the file left out
  bool selectsFile = false;
  bool exclude = false;  // leave `fileName` out instead of taking only it
  bool quiet = false;    // hide the library's printed lines
};

// Runs the extraction and returns its status. The progress display is shown
// when standard error is a terminal and the logger is silent. Throws std::runtime_error when the
// tool cannot set up its own part (redirections), before the run starts.
_KALU_Error RunExtraction(const ExtractionRequest& request);

// True when the last RunExtraction was interrupted by SIGINT or SIGTERM.
bool ExtractionWasInterrupted();

}  // namespace cli

#endif  // TOOLS_CLI_RUN_EXTRACTION_H_
