#include "tools/cli/options.h"

namespace cli {

namespace {

const OptionDef* FindOption(const std::vector<OptionDef>& definitions,
                           const std::string& name) {
  for (const OptionDef& def : definitions) {
    if (name == def.name) return &def;
  }
  return nullptr;
}

}  // namespace

std::string ParsedOptions::value(const std::string& name) const {
  auto found = m_values.find(name);
  return found == m_values.end() ? std::string() : found->second.front();
}

const std::vector<std::string>& ParsedOptions::values(const std::string& name) const {
  static const std::vector<std::string> kNone;
  auto found = m_values.find(name);
  return found == m_values.end() ? kNone : found->second;
}

std::string ParsedOptions::required(const std::string& name) const {
  if (!has(name)) throw UsageError("missing --" + name);
  return value(name);
}

ParsedOptions ParseOptions(const std::vector<std::string>& args,
                           const std::vector<OptionDef>& definitions) {
  ParsedOptions parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      parsed.positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg.compare(0, 2, "--") != 0) throw UsageError("unknown option " + arg);

    std::string name = arg.substr(2);
    std::string value;
    bool inlineValue = false;
    size_t equals = name.find('=');
    if (equals != std::string::npos) {
      value = name.substr(equals + 1);
      name.erase(equals);
      inlineValue = true;
    }
    const OptionDef* def = FindOption(definitions, name);
    if (def == nullptr) throw UsageError("unknown option --" + name);
    const bool takesValue = def->kind != OptionKind::kFlag;
    if (!takesValue && inlineValue) throw UsageError("--" + name + " takes no value");
    if (takesValue && !inlineValue) {
      if (i + 1 == args.size()) throw UsageError("--" + name + " needs a value");
      value = args[++i];
    }
    std::vector<std::string>& slot = parsed.m_values[name];
    if (!slot.empty() && def->kind != OptionKind::kRepeatedValue) {
      throw UsageError("--" + name + " given twice");
    }
    slot.push_back(value);
  }
  return parsed;
}

void ExpectPositional(const ParsedOptions& options, size_t count, const char* names) {
  if (options.positional.size() == count) return;
  if (options.positional.size() < count) throw UsageError(std::string("expected ") + names);
  throw UsageError("unexpected argument " + options.positional[count]);
}

}  // namespace cli
