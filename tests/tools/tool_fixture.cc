#include "tests/tools/tool_fixture.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace tooltest {

namespace {

// The tool, and the emulator command that runs it in a cross build (words
// separated by blanks; empty for a native build).
const char kToolPath[] = EV_TOOL_PATH;
const char kEmulator[] = EV_TOOL_EMULATOR;

std::vector<std::string> CommandLine(const std::vector<std::string>& args) {
  std::vector<std::string> line;
  std::istringstream emulator(kEmulator);
  for (std::string word; emulator >> word;) line.push_back(word);
  line.push_back(kToolPath);
  line.insert(line.end(), args.begin(), args.end());
  return line;
}

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&m_actions); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&m_actions); }
  void openAs(int fd, const std::string& path, int flags) {
    m_paths.push_back(path);
    posix_spawn_file_actions_addopen(&m_actions, fd, m_paths.back().c_str(), flags, 0600);
  }
  posix_spawn_file_actions_t* get() { return &m_actions; }

 private:
  posix_spawn_file_actions_t m_actions;
  std::vector<std::string> m_paths;  // kept until the spawn
};

pid_t Spawn(const std::vector<std::string>& args, const std::vector<std::string>& env,
            SpawnActions& actions) {
  std::vector<std::string> line = CommandLine(args);
  std::vector<char*> argv;
  for (std::string& arg : line) argv.push_back(arg.data());
  argv.push_back(nullptr);
  std::vector<std::string> environment(env);
  for (char** entry = environ; *entry != nullptr; ++entry) environment.push_back(*entry);
  std::vector<char*> envp;
  for (std::string& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);
  pid_t pid;
  int error = posix_spawn(&pid, argv[0], actions.get(), nullptr, argv.data(), envp.data());
  if (error != 0) throw std::runtime_error("cannot start " + line[0]);
  return pid;
}

int ExitStatus(int waitStatus) { return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1; }

}  // namespace

std::string ReadIfExists(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

ToolTest::ToolTest()
    : m_root(pki::MakeRootCa("Tool Test Root",
                             {pki::UtcTime(2020, 1, 1), pki::UtcTime(2040, 1, 1)})),
      m_signer(pki::MakeSigner("Tool Test Signer",
                               {pki::UtcTime(2022, 3, 1, 12), pki::UtcTime(2039, 1, 1)}, m_root)),
      m_trust(Path("trust.pem")),
      m_signerCert(Path("signer.pem")),
      m_signerKey(Path("signer.key")) {
  pki::WriteCertificatesPem(m_trust, {m_root.cert.get()});
  pki::WriteCertificatesPem(m_signerCert, {m_signer.cert.get()});
  pki::WriteKeyPem(m_signerKey, m_signer.key.get());
  mkdir(Path("in").c_str(), 0700);
}

ToolRun ToolTest::Run(const std::vector<std::string>& args, const std::vector<std::string>& env) {
  const std::string outPath = Path("tool.out");
  const std::string errPath = Path("tool.err");
  SpawnActions actions;
  actions.openAs(STDOUT_FILENO, outPath, O_WRONLY | O_CREAT | O_TRUNC);
  actions.openAs(STDERR_FILENO, errPath, O_WRONLY | O_CREAT | O_TRUNC);
  pid_t pid = Spawn(args, env, actions);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  ToolRun run;
  run.exitStatus = ExitStatus(status);
  run.out = ReadIfExists(outPath);
  run.err = ReadIfExists(errPath);
  return run;
}

std::string ToolTest::Input(const std::string& name, const std::string& contents) {
  std::string path = Path("in/" + name);
  testsupport::WriteFile(path, contents);
  return path;
}

void ToolTest::Pack(const std::string& package, const std::vector<std::string>& files,
                    const std::vector<std::string>& settings) {
  std::vector<std::string> args = {"pack", "--key", m_signerKey, "--cert", m_signerCert,
                                   "--out", package};
  for (const std::string& setting : settings) {
    args.push_back("--set");
    args.push_back(setting);
  }
  args.insert(args.end(), files.begin(), files.end());
  ToolRun run = Run(args);
  ASSERT_EQ(run.exitStatus, 0) << run.err;
}

std::string ToolTest::Sign(const std::string& content) const {
  std::vector<unsigned char> der = pki::SignPkcs7Der(content, m_signer);
  return std::string(der.begin(), der.end());
}

}  // namespace tooltest
