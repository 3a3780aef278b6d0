// The subcommands of extract-verify.
//
// Each subcommand lives in its own file and exports one Command. `run` gets
// the arguments after the subcommand's name and returns the exit status;
// it may throw UsageError for a malformed command line (exit status 2).
// main prints `usage` for --help and after a usage error.
#ifndef TOOLS_CLI_COMMANDS_H_
#define TOOLS_CLI_COMMANDS_H_

#include <string>
#include <vector>

namespace cli {

struct Command {
  const char* name;
  const char* summary;  // one line for the overview
  const char* usage;    // the whole --help text, ending in "\n"
  int (*run)(const std::vector<std::string>& args);
};

extern const Command kExtractCommand;
extern const Command kPackCommand;
extern const Command kInspectCommand;
extern const Command kDemoCommand;

// The name that prefixes the tool's own messages.
constexpr const char kToolName[] = "extract-verify";

// The program as it was started (argv[0]), for messages that suggest a
// command line to type next. Set by main before any command runs.
extern const char* g_invokedAs;

}  // namespace cli

#endif  // TOOLS_CLI_COMMANDS_H_
