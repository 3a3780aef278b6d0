// What the subcommands of extract-verify share on their command lines: the
// exit statuses, the errors that end a command (an input and its cause, a
// refused package), and the options that several commands take (CLI11 parses every command line).
// Main thread only.
#ifndef TOOLS_CLI_OPTIONS_H_
#define TOOLS_CLI_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

namespace cli {

// Exit statuses of the tool.
enum ExitStatus { kExitSuccess = 0, kExitFailure = 1, kExitUsage = 2, kExitInterrupted = 130 };

// A command line that parses but makes no sense (exit status 2).
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& what) : std::runtime_error(what) {}
};

// An input that cannot be used, said in one sentence that names the file and
// the cause. `detail` keeps what the lower layers said (OpenSSL's error
// stack), shown only with --verbose.
class InputError : public std::runtime_error {
 public:
  explicit InputError(const std::string& sentence, std::string detail = "")
      : std::runtime_error(sentence), m_detail(std::move(detail)) {}
  const std::string& detail() const { return m_detail; }

 private:
  std::string m_detail;
};

// The inputs cannot make a package that the extractor accepts (exit status
// 1): said as "refused: " and why.
class PackRefused : public std::runtime_error {
 public:
  explicit PackRefused(const std::string& what) : std::runtime_error(what) {}
};

// Set by --verbose of any command: show the library's lines and the lower
// layers' details of a failure.
extern bool g_verbose;

void AddVerboseFlag(CLI::App* command);

// --local-time: check signatures in the process's time zone instead of UTC.
void AddLocalTimeFlag(CLI::App* command, bool* localTime);

// Makes the library read certificate times in UTC (the head unit's zone)
// unless `localTime`; returns what to print: "UTC" or "local time (TZ=...)".
// Called before any run starts: it changes the process's environment.
std::string UseVerificationTimeZone(bool localTime);

}  // namespace cli

#endif  // TOOLS_CLI_OPTIONS_H_
