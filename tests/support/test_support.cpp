#include "support/test_support.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {

void StoreTest::SetUp() {
  const char *tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarnwick-test-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  dir_ = pattern;
  ZNStoreSetDirectory(dir_.c_str());
  PTReset();
}

void StoreTest::TearDown() {
  PTReset();
  ZNStoreSetDirectory(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

int runInChildProcess(const std::function<bool()> &body) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    bool ok = false;
    try {
      ok = body();
    } catch (...) {
    }
    _exit(ok ? 0 : 1);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace tw::test
