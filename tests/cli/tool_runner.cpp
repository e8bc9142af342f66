#include "cli/tool_runner.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tw::test {
namespace {

// Runs the tool with `args`; standard streams from and to files.
pid_t spawn(const std::vector<std::string> &args, const std::vector<std::string> &environment,
            const std::string &inPath, const std::string &outPath, const std::string &errPath) {
  // In a cross build the tool runs through the emulator that runs the tests.
  std::vector<std::string> argv;
  std::istringstream emulator(TARNWICK_TOOL_EMULATOR);
  for (std::string word; emulator >> word;) argv.push_back(word);
  argv.push_back(TARNWICK_TOOL);
  argv.insert(argv.end(), args.begin(), args.end());
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid != 0) return pid;
  int in = open(inPath.c_str(), O_RDONLY);
  int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (in < 0 || out < 0 || err < 0) _exit(126);
  dup2(in, 0);
  dup2(out, 1);
  dup2(err, 2);
  // No announcement reaches a real system bus from a test.
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tarnwick-test-bus", 1);
  for (const std::string &assignment : environment) putenv(const_cast<char *>(assignment.c_str()));
  std::vector<char *> pointers;
  for (auto &arg : argv) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  execvp(pointers[0], pointers.data());
  _exit(127);
}

}  // namespace

void CliTest::SetUp() {
  StoreTest::SetUp();
  work_ = temporaryDirectory("tarnwick-cli");
}

void CliTest::TearDown() {
  std::error_code ignored;
  std::filesystem::remove_all(work_, ignored);
  StoreTest::TearDown();
}

void CliTest::writeFile(const std::string &name, const std::string &text) const {
  std::ofstream(workFile(name), std::ios::binary) << text;
}

CliTest::Running CliTest::launch(const std::vector<std::string> &args,
                                 const std::vector<std::string> &environment,
                                 const std::string &input, const std::string &tag,
                                 const std::string &output) const {
  writeFile(tag + ".in", input);
  // Output sent elsewhere is not read back.
  Running running{-1, output.empty() ? workFile(tag + ".out") : "", workFile(tag + ".err")};
  running.pid = spawn(args, environment, workFile(tag + ".in"),
                      output.empty() ? running.outPath : output, running.errPath);
  return running;
}

ToolResult CliTest::finish(const Running &running) {
  ToolResult result;
  int status = 0;
  if (waitpid(running.pid, &status, 0) == running.pid) {
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  if (!running.outPath.empty()) result.out = fileBytes(running.outPath);
  result.err = fileBytes(running.errPath);
  return result;
}

bool CliTest::installed(std::initializer_list<const char *> payloads) const {
  for (const char *payload : payloads) {
    ToolResult result = tool({"install", example(payload)});
    EXPECT_EQ(result.exitCode, 0) << payload << ": " << result.err;
    if (result.exitCode != 0) return false;
  }
  return true;
}

const std::string &CliTest::examples() {
  // Made once per test process, removed when the process ends.
  struct Copy {
    Copy() : directory(temporaryDirectory("tarnwick-examples")) {
      for (const auto &entry : std::filesystem::directory_iterator(TARNWICK_EXAMPLES)) {
        if (entry.path().extension() == ".json") {
          std::filesystem::copy_file(entry.path(),
                                     std::filesystem::path(directory) / entry.path().filename());
        }
      }
      std::string make =
          std::string(TARNWICK_EXAMPLES) + "/make-client-identity " + directory + " >/dev/null";
      if (std::system(make.c_str()) != 0) std::abort();
    }
    ~Copy() {
      std::error_code ignored;
      std::filesystem::remove_all(directory, ignored);
    }
    std::string directory;
  };
  static const Copy copy;
  return copy.directory;
}

std::vector<std::string> CliTest::examplePayloads() {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(examples())) {
    if (entry.path().extension() == ".json") names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace tw::test
