// What the tool finds out about an extraction run after it has returned,
// from the run state the library leaves behind and from the destination
// directory: the files written, the files the manifest lists that the run
// did not write, the file a SHA-256 failure is about, and the files a failed
// run has left unverified. Main thread, after the run, before the next.
#ifndef TOOLS_CLI_EXTRACT_OUTCOME_H_
#define TOOLS_CLI_EXTRACT_OUTCOME_H_

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "tools/cli/run_extraction.h"

namespace cli {

// The regular files below a directory, by path relative to it, with what
// tells whether a run has written them.
struct FileStamp {
  unsigned long long inode;
  struct timespec modified;
};
using DirectorySnapshot = std::map<std::string, FileStamp>;

DirectorySnapshot TakeSnapshot(const std::string& directory);

// Files now in `directory` that are new or rewritten since `before`.
std::vector<std::string> ChangedFiles(const DirectorySnapshot& before,
                                      const std::string& directory);

// The names of the files that the run wrote, in name order.
std::vector<std::string> WrittenFiles();

// Files of the verified manifest that the request selects and that the run
// did not write. Empty when no manifest was verified.
std::vector<std::string> FilesMissingFromRun(const ExtractionRequest& request);

// "name: why" for the first written file that is not listed in the manifest
// or whose SHA-256 differs from the listed one; empty when none.
std::string FirstMismatch();

}  // namespace cli

#endif  // TOOLS_CLI_EXTRACT_OUTCOME_H_
