#include "tests/tools/tool_fixture.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "authoring/package/manifest_text.h"
#include "authoring/package/package_writer.h"

extern char** environ;

namespace tooltest {

namespace {

// The tool, and the emulator command that runs it in a cross build (words
// separated by blanks; empty for a native build).
const char kToolPath[] = EV_TOOL_PATH;
const char kEmulator[] = EV_TOOL_EMULATOR;

// Pointers into `words` with a null at the end, as exec wants them.
std::vector<char*> Pointers(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

pid_t Spawn(const std::vector<std::string>& args, std::vector<std::string> environment,
            const std::string& outPath, const std::string& errPath) {
  std::vector<std::string> line;
  std::istringstream emulator(kEmulator);
  for (std::string word; emulator >> word;) line.push_back(word);
  line.push_back(kToolPath);
  line.insert(line.end(), args.begin(), args.end());
  // The given variables replace inherited ones of the same name: an emulator
  // that rebuilds the environment keeps the last of two, the C library the first.
  const size_t given = environment.size();
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string name = std::string(*entry).substr(0, strcspn(*entry, "=") + 1);
    bool replaced = false;
    for (size_t i = 0; i < given; ++i) replaced |= environment[i].rfind(name, 0) == 0;
    if (!replaced) environment.push_back(*entry);
  }
  std::vector<char*> argv = Pointers(line), envp = Pointers(environment);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), flags, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), flags, 0600);
  pid_t pid;
  int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + line[0]);
  return pid;
}

}  // namespace

ToolTest::ToolTest() : m_signing(Path("trust.pem")) {
  pki::WriteCertificatesPem(m_signerCert, {m_signer.cert.get()});
  pki::WriteKeyPem(m_signerKey, m_signer.key.get());
  mkdir(Path("in").c_str(), 0700);
}

ToolRun ToolTest::Run(const std::vector<std::string>& args, const std::vector<std::string>& env,
                      const std::function<void(pid_t)>& whileRunning) {
  pid_t pid = Spawn(args, env, Path("tool.out"), Path("tool.err"));
  if (whileRunning) whileRunning(pid);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testsupport::ReadFile(Path("tool.out")),
          testsupport::ReadFile(Path("tool.err"))};
}

std::string ToolTest::Input(const std::string& name, const std::string& contents) {
  std::string path = Path("in/" + name);
  testsupport::WriteFile(path, contents);
  return path;
}

std::vector<std::string> ToolTest::PackArgs(const std::vector<std::string>& more) const {
  std::vector<std::string> args = {"pack", "--key", m_signerKey, "--cert", m_signerCert};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

void ToolTest::Pack(const std::string& package, const std::vector<std::string>& files,
                    const std::vector<std::string>& settings) {
  std::vector<std::string> args = PackArgs({"--out", package});
  for (const std::string& setting : settings) args.insert(args.end(), {"--set", setting});
  args.insert(args.end(), files.begin(), files.end());
  ToolRun run = Run(args);
  ASSERT_EQ(run.exitStatus, 0) << run.err;
}

void ToolTest::WriteHostilePackage(const std::string& path,
                                   const std::vector<std::pair<std::string, std::string>>& listed,
                                   const std::vector<std::pair<std::string, std::string>>& stored) {
  std::vector<package::ManifestFile> files;
  for (const auto& file : listed) {
    files.push_back({file.first, package::Sha256Hex(file.second), file.second.size()});
  }
  std::vector<package::Entry> entries = {
      package::Entry::File("Version.der", m_signing.Sign(package::ManifestText({}, files)))};
  for (const auto& file : stored) entries.push_back(package::Entry::File(file.first, file.second));
  package::WritePackage(path, entries);
}

}  // namespace tooltest
