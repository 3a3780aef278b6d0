// extract-verify: try, build and check signed update packages from a shell.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "tools/cli/commands.h"
#include "tools/cli/options.h"

const char* cli::g_invokedAs = cli::kToolName;

namespace {

const cli::Command* const kCommands[] = {&cli::kExtractCommand, &cli::kPackCommand,
                                         &cli::kInspectCommand, &cli::kDemoCommand};

void PrintOverview(FILE* out) {
  fprintf(out,
          "Usage: extract-verify COMMAND [OPTIONS] [ARGUMENTS]\n"
          "\n"
          "Unpacks signed update packages while verifying their signed manifest and the\n"
          "SHA-256 of every file, and builds and checks such packages.\n"
          "\n"
          "Commands:\n");
  for (const cli::Command* command : kCommands) {
    fprintf(out, "  %-9s %s\n", command->name, command->summary);
  }
  fprintf(out,
          "\n"
          "Run 'extract-verify COMMAND --help' for the options of a command.\n"
          "Exit status: 0 on success, 1 when the command failed, 2 on a usage error.\n");
}

const cli::Command* FindCommand(const char* name) {
  for (const cli::Command* command : kCommands) {
    if (strcmp(command->name, name) == 0) return command;
  }
  return nullptr;
}

int RunCommand(const cli::Command& command, const std::vector<std::string>& args) {
  try {
    return command.run(args);
  } catch (const cli::UsageError& error) {
    fprintf(stderr, "%s %s: %s\nTry '%s %s --help'.\n", cli::kToolName, command.name,
            error.what(), cli::kToolName, command.name);
    return cli::kExitUsage;
  } catch (const std::exception& error) {
    fprintf(stderr, "%s %s: %s\n", cli::kToolName, command.name, error.what());
    return cli::kExitFailure;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // The library prints its lines with printf. Line buffering keeps them in
  // order with the tool's own lines wherever standard output goes, and lets
  // the progress display pass them on line by line.
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc > 0) cli::g_invokedAs = argv[0];

  if (argc < 2) {
    PrintOverview(stderr);
    return cli::kExitUsage;
  }
  const char* name = argv[1];
  if (strcmp(name, "--help") == 0 || strcmp(name, "-h") == 0 || strcmp(name, "help") == 0) {
    PrintOverview(stdout);
    return cli::kExitSuccess;
  }
  const cli::Command* command = FindCommand(name);
  if (command == nullptr) {
    fprintf(stderr, "%s: unknown command '%s'\n\n", cli::kToolName, name);
    PrintOverview(stderr);
    return cli::kExitUsage;
  }
  std::vector<std::string> args(argv + 2, argv + argc);
  for (const std::string& arg : args) {
    if (arg == "--") break;
    if (arg == "--help" || arg == "-h") {
      fputs(command->usage, stdout);
      return cli::kExitSuccess;
    }
  }
  return RunCommand(*command, args);
}
