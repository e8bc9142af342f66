// Runs the built tarnwick binary as a separate process, for the end-to-end
// tests: arguments in, exit code, standard output and standard error out.
#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/test_support.hpp"

namespace tw::test {

// `head` followed by `tail`: a command line made of a fixed part and a case's.
inline std::vector<std::string> concat(std::vector<std::string> head,
                                       const std::vector<std::string> &tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

struct ToolResult {
  int exitCode = -1;
  std::string out;
  std::string err;
  nlohmann::json json() const { return nlohmann::json::parse(out); }
};

// A store of its own (the StoreTest one, also the test process's store, so
// that the test can look into its Coffer), a work directory for files, and
// the tool run with --store on it.
class CliTest : public StoreTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::string workFile(const std::string &name) const { return work_ + "/" + name; }
  void writeFile(const std::string &name, const std::string &text) const;

  // The tool started without waiting, its output going to files; finish()
  // waits and collects.
  struct Running {
    pid_t pid = -1;
    std::string outPath;
    std::string errPath;
  };
  // Starts `tarnwick --store STORE ARGS...`, with `environment`
  // ("NAME=value") on top of the test's.
  Running start(std::vector<std::string> args, const std::string &tag,
                const std::vector<std::string> &environment = {}) const {
    args.insert(args.begin(), {"--store", storeDir()});
    return launch(args, environment, "", tag);
  }
  static ToolResult finish(const Running &running);

  // Runs `tarnwick --store STORE ARGS...` with `input` on standard input.
  ToolResult tool(const std::vector<std::string> &args, const std::string &input = "") const {
    return toolIn(storeDir(), args, input);
  }
  ToolResult toolIn(const std::string &store, std::vector<std::string> args,
                    const std::string &input = "") const {
    args.insert(args.begin(), {"--store", store});
    return finish(launch(args, {}, input, "tool"));
  }
  // The same with no --store: the environment chooses the store; standard
  // output goes to `output` when given (/dev/full, say).
  ToolResult toolWithoutStore(const std::vector<std::string> &args,
                              const std::vector<std::string> &environment,
                              const std::string &output = "") const {
    return finish(launch(args, environment, "", "tool", output));
  }

  // Installs each example payload in turn; false, with the failure
  // recorded, at the first the tool refuses.
  bool installed(std::initializer_list<const char *> payloads) const;

  // A copy of examples/ with the client identity made, shared by the tests
  // of this process.
  static const std::string &examples();
  static std::vector<std::string> examplePayloads();
  std::string example(const std::string &name) const { return examples() + "/" + name; }

 private:
  Running launch(const std::vector<std::string> &args, const std::vector<std::string> &environment,
                 const std::string &input, const std::string &tag,
                 const std::string &output = "") const;

  std::string work_;
};

}  // namespace tw::test
