// Helpers shared by every test suite.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace tw::test {

// A fresh store directory for one test: made under $TMPDIR, set as the
// process's store directory (preferences, Coffer, connection registry),
// with the testing interface's counts and plans reset; removed afterwards.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  const std::string &storeDir() const { return dir_; }

 private:
  std::string dir_;
};

// Runs `body` in a forked child process (a real second process) and returns
// its exit status: 0 when the body returned true. Test assertions inside
// the body do not reach the parent; report through the return value.
int runInChildProcess(const std::function<bool()> &body);

}  // namespace tw::test
