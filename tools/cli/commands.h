// The subcommands of extract-verify.
//
// Each subcommand lives in its own file: it adds itself to the tool's
// command line (its options bound to values it keeps) and returns what
// runs it once the command line has been parsed. `run` returns the exit
// status; it may throw InputError or PackRefused (exit status 1, one
// sentence), which main reports. Main thread only.
#ifndef TOOLS_CLI_COMMANDS_H_
#define TOOLS_CLI_COMMANDS_H_

#include <CLI/CLI.hpp>
#include <functional>

namespace cli {

struct Command {
  CLI::App* app;
  std::function<int()> run;
};

Command AddExtractCommand(CLI::App& tool);
Command AddInspectCommand(CLI::App& tool);
Command AddPackCommand(CLI::App& tool);
Command AddResignCommand(CLI::App& tool);
Command AddAttachCommand(CLI::App& tool);
Command AddDemoCommand(CLI::App& tool);

// The name that prefixes the tool's own messages.
constexpr const char kToolName[] = "extract-verify";

// The program as it was started (argv[0]), for messages that suggest a
// command line to type next. Set by main before any command runs.
extern const char* g_invokedAs;

}  // namespace cli

#endif  // TOOLS_CLI_COMMANDS_H_
