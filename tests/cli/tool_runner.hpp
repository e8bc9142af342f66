// Runs the built tarnwick binary as a separate process, for the end-to-end
// tests: arguments in, exit code, standard output and standard error out.
#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/test_support.hpp"

namespace tw::test {

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

  const std::string &workDir() const { return work_; }
  std::string workFile(const std::string &name) const { return work_ + "/" + name; }
  void writeFile(const std::string &name, const std::string &text) const;

  // Runs `tarnwick --store STORE ARGS...` with `input` on standard input.
  ToolResult tool(const std::vector<std::string> &args, const std::string &input = "") const {
    return toolIn(storeDir(), args, input);
  }
  ToolResult toolIn(const std::string &store, const std::vector<std::string> &args,
                    const std::string &input = "") const;
  // The same with no --store: the environment chooses the store.
  ToolResult toolWithoutStore(const std::vector<std::string> &args,
                              const std::vector<std::string> &environment) const;

  // Starts the tool without waiting; finish() waits and collects.
  struct Running {
    pid_t pid = -1;
    std::string outPath;
    std::string errPath;
  };
  Running start(const std::vector<std::string> &args, const std::string &tag) const;
  static ToolResult finish(const Running &running);

  // A copy of examples/ with the client identity made, shared by the tests
  // of this process.
  static const std::string &examples();
  static std::vector<std::string> examplePayloads();
  std::string example(const std::string &name) const { return examples() + "/" + name; }

 private:
  std::string work_;
};

}  // namespace tw::test
