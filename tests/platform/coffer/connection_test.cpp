// The process's connection to the Coffer: writers in several processes at
// once, a connection inherited across fork, threads sharing it, and a
// store file that changes under it.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/prefs.h"

namespace {

using tw::test::addCofferPassword;
using tw::test::hasCofferItem;
using tw::test::runInChildProcess;

// How many of this process's descriptors are open on the file at `path`.
int descriptorsOpenOn(const std::string &path) {
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    count += std::filesystem::read_symlink(entry.path(), ignored) == path;
  }
  return count;
}

std::string serviceName(int writer, int item) {
  return "w" + std::to_string(writer) + "-" + std::to_string(item);
}

// The contention run's size: a few rounds here; scripts/coffer-contention
// sets TARNWICK_CONTENTION="processes adds rounds" for the full run.
struct ContentionSize {
  int processes = 4, adds = 50, rounds = 3;
};

ContentionSize contentionSize() {
  ContentionSize size;
  if (const char *text = std::getenv("TARNWICK_CONTENTION")) {
    std::sscanf(text, "%d %d %d", &size.processes, &size.adds, &size.rounds);
  }
  return size;
}

// Starts `processes` writers that wait on one pipe, so that they all begin
// adding at the same instant; returns the failed adds they report.
int runWritersAtOnce(int processes, int adds) {
  int gate[2];
  if (pipe(gate) != 0) return -1;
  std::vector<pid_t> writers;
  fflush(nullptr);
  for (int w = 0; w < processes; ++w) {
    pid_t pid = fork();
    if (pid == 0) {
      close(gate[1]);
      char ignored;
      (void)!read(gate[0], &ignored, 1);  // returns when the parent closes its end
      int failed = 0;
      for (int i = 0; i < adds; ++i) failed += addCofferPassword(serviceName(w, i)) != kVltSuccess;
      _exit(failed > 250 ? 250 : failed);
    }
    if (pid > 0) writers.push_back(pid);
  }
  close(gate[0]);
  close(gate[1]);
  int failed = 0;
  for (pid_t pid : writers) {
    int status = 0;
    waitpid(pid, &status, 0);
    failed += WIFEXITED(status) ? WEXITSTATUS(status) : adds;
  }
  return writers.size() == static_cast<size_t>(processes) ? failed : -1;
}

class CofferConnection : public tw::test::StoreTest {};

TEST_F(CofferConnection, WritersInSeveralProcessesNeverFailOneAnother) {
  const ContentionSize size = contentionSize();
  int failed = 0, missing = 0;
  for (int round = 0; round < size.rounds; ++round) {
    // A fresh Coffer each round: the writers also race to create it.
    std::string directory = storeDir() + "/round-" + std::to_string(round);
    ZNStoreSetDirectory(directory.c_str());
    int roundFailed = runWritersAtOnce(size.processes, size.adds);
    ASSERT_GE(roundFailed, 0) << "a writer could not be started";
    failed += roundFailed;
    for (int w = 0; w < size.processes; ++w) {
      for (int i = 0; i < size.adds; ++i) missing += !hasCofferItem(serviceName(w, i));
    }
  }
  std::printf("contention: %d processes x %d adds x %d rounds: %d failed adds, %d items missing\n",
              size.processes, size.adds, size.rounds, failed, missing);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(missing, 0);
}

TEST_F(CofferConnection, IsKeptOpenAndAChildLeavesItsParentsAloneForItsOwn) {
  const std::string database = storeDir() + "/coffer.db";
  ASSERT_EQ(addCofferPassword("parent"), kVltSuccess);
  ASSERT_TRUE(hasCofferItem("parent"));
  EXPECT_EQ(descriptorsOpenOn(database), 1);
  EXPECT_EQ(runInChildProcess([&] {
              return hasCofferItem("parent") && addCofferPassword("child") == kVltSuccess &&
                     descriptorsOpenOn(database) == 2;  // the inherited one, untouched, and its own
            }),
            0);
  EXPECT_TRUE(hasCofferItem("child"));
  EXPECT_EQ(addCofferPassword("child"), kVltErrorDuplicateItem);
  EXPECT_EQ(descriptorsOpenOn(database), 1);
}

TEST_F(CofferConnection, ThreadsOfOneProcessShareItSafely) {
  constexpr int kThreads = 4, kAddsEach = 25;
  std::vector<int> failed(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failed] {
      for (int i = 0; i < kAddsEach; ++i) {
        failed[t] += addCofferPassword(serviceName(t, i)) != kVltSuccess ||
                     !hasCofferItem(serviceName(t, i));
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(failed, std::vector<int>(kThreads, 0));
}

TEST_F(CofferConnection, StoreFileReplacedUnderItIsOpenedAnew) {
  ASSERT_EQ(addCofferPassword("before"), kVltSuccess);
  std::filesystem::remove(storeDir() + "/coffer.db");
  EXPECT_EQ(runInChildProcess([] { return addCofferPassword("after") == kVltSuccess; }), 0);
  EXPECT_TRUE(hasCofferItem("after"));
  EXPECT_FALSE(hasCofferItem("before"));
}

}  // namespace
