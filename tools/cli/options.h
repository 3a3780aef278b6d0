// Command-line parsing shared by the subcommands of extract-verify.
//
// A subcommand declares its options (long names only, "--name value" or
// "--name=value", optionally repeatable); everything else is a positional
// argument, and "--" ends the options. Problems with the command line are
// reported by throwing UsageError, which main turns into exit status 2.
// Used on the main thread only.
#ifndef TOOLS_CLI_OPTIONS_H_
#define TOOLS_CLI_OPTIONS_H_

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

// Exit statuses of the tool.
enum ExitStatus { kExitSuccess = 0, kExitFailure = 1, kExitUsage = 2 };

class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& what) : std::runtime_error(what) {}
};

enum class OptionKind {
  kFlag,           // --name
  kValue,          // --name VALUE, at most once
  kRepeatedValue,  // --name VALUE, any number of times
};

struct OptionDef {
  const char* name;  // without the leading "--"
  OptionKind kind;
};

class ParsedOptions {
 public:
  bool has(const std::string& name) const { return m_values.count(name) != 0; }
  // The value of an option given once; empty when absent.
  std::string value(const std::string& name) const;
  // Every value of a repeatable option, in command-line order.
  const std::vector<std::string>& values(const std::string& name) const;
  // The option's value; throws UsageError when it was not given.
  std::string required(const std::string& name) const;

  std::vector<std::string> positional;

 private:
  friend ParsedOptions ParseOptions(const std::vector<std::string>&,
                                    const std::vector<OptionDef>&);
  std::map<std::string, std::vector<std::string>> m_values;
};

// Parses a subcommand's arguments (the subcommand's name excluded). Flags
// without a value are recorded with an empty value.
ParsedOptions ParseOptions(const std::vector<std::string>& args,
                           const std::vector<OptionDef>& definitions);

// Throws UsageError unless exactly `count` positional arguments were given;
// `names` describes them for the message ("PACKAGE DEST").
void ExpectPositional(const ParsedOptions& options, size_t count, const char* names);

}  // namespace cli

#endif  // TOOLS_CLI_OPTIONS_H_
