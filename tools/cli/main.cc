// extract-verify: try, build and check signed update packages from a shell.
#include <openssl/err.h>

#include <cstdio>
#include <exception>
#include <vector>

#include "extract_verify/extraction.h"
#include "tools/cli/commands.h"
#include "tools/cli/options.h"
#include "tools/cli/token_keys.h"

const char* cli::g_invokedAs = cli::kToolName;

namespace {

const char kDescription[] =
    "Unpacks signed update packages while verifying their signed manifest and the\n"
    "SHA-256 of every file, and builds and checks such packages.";

const char kFooter[] =
    "Run 'extract-verify COMMAND --help' for the options of a command.\n"
    "Exit status: 0 on success, 1 when the command failed, 2 on a usage error,\n"
    "130 when interrupted.";

int RunAndReport(const cli::Command& command) {
  try {
    return command.run();
  } catch (const cli::UsageError& error) {
    fprintf(stderr, "%s %s: %s\nRun with --help for more information.\n", cli::kToolName,
            command.app->get_name().c_str(), error.what());
    return cli::kExitUsage;
  } catch (const cli::PackRefused& refused) {
    fprintf(stderr, "%s %s: refused: %s\n", cli::kToolName, command.app->get_name().c_str(),
            refused.what());
  } catch (const cli::InputError& error) {
    fprintf(stderr, "%s %s: %s\n", cli::kToolName, command.app->get_name().c_str(), error.what());
    if (cli::g_verbose && !error.detail().empty()) fprintf(stderr, "%s", error.detail().c_str());
  } catch (const std::exception& error) {
    fprintf(stderr, "%s %s: %s\n", cli::kToolName, command.app->get_name().c_str(), error.what());
  }
  if (cli::g_verbose) ERR_print_errors_fp(stderr);
  return cli::kExitFailure;
}

int Run(const cli::Command& command) {
  const int status = RunAndReport(command);
  // The command's keys are freed by now; a token's engine must close while
  // its module still stands, not in the exit handlers.
  cli::CloseTokenEngine();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // The library prints its lines with printf. Line buffering keeps them in
  // order with the tool's own lines wherever standard output goes, and lets
  // the progress display pass them on line by line.
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc > 0) cli::g_invokedAs = argv[0];

  CLI::App tool(kDescription, cli::kToolName);
  tool.set_version_flag("--version", std::string(cli::kToolName) +
                                         " " EV_TOOL_VERSION " (library " +
                                         extract_verify_version() + ")");
  tool.footer(kFooter);
  tool.require_subcommand(1);
  const std::vector<cli::Command> commands = {
      cli::AddExtractCommand(tool), cli::AddInspectCommand(tool), cli::AddPackCommand(tool),
      cli::AddResignCommand(tool),  cli::AddAttachCommand(tool),  cli::AddDemoCommand(tool)};
  try {
    tool.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int status = tool.exit(error);
    return status == 0 ? cli::kExitSuccess : cli::kExitUsage;
  }
  for (const cli::Command& command : commands) {
    if (command.app->parsed()) return Run(command);
  }
  return cli::kExitUsage;
}
