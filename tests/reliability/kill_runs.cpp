#include "reliability/kill_runs.hpp"

#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using Clock = std::chrono::steady_clock;

// A forked child running the write; `arm` runs in the child between its
// word to the parent and the write.
struct Child {
  pid_t pid = -1;
  int word = -1;  // the parent's end of the pipe the child writes its word to

  Child(const Write &write, const std::function<void()> &arm) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) std::abort();
    std::fflush(nullptr);
    pid = fork();
    if (pid == 0) {
      close(pipeEnds[0]);
      bool ok = write.prepare();
      arm();
      if (::write(pipeEnds[1], ok ? "w" : "f", 1) != 1) _exit(3);
      _exit(ok && write.write() ? 0 : 1);
    }
    close(pipeEnds[1]);
    word = pipeEnds[0];
  }
  ~Child() { close(word); }

  // Waits for the child's word: true when it is about to write.
  bool aboutToWrite() const {
    char c = 0;
    return read(word, &c, 1) == 1 && c == 'w';
  }
};

KillOutcome outcomeOf(pid_t pid, int status, const std::string &journal) {
  KillOutcome outcome;
  if (WIFSTOPPED(status) || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)) {
    if (WIFSTOPPED(status)) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
    }
    outcome.killed = true;
    outcome.hotJournal = isHotJournal(journal);
  } else {
    outcome.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return outcome;
}

}  // namespace

KillSize killSize() {
  KillSize size;
  if (const char *text = std::getenv("TARNWICK_KILLS")) size.random = std::atoi(text);
  return size;
}

void KillTally::count(Fell fell) {
  switch (fell) {
    case Fell::before:
      ++before;
      break;
    case Fell::inside:
      ++inside;
      break;
    case Fell::after:
      ++after;
      break;
  }
}

void KillTally::expectSound() const {
  EXPECT_EQ(torn, 0);
  EXPECT_GT(stopped, 20);
  EXPECT_GT(before + inside, 0);
  EXPECT_GT(after, 0);
}

std::string KillTally::summary() const {
  char text[256];
  std::snprintf(text, sizeof text,
                "%d kills (%d at a step, %d at random; %d runs ended first): "
                "%d before the write, %d inside it, %d after its commit point; %d torn",
                stopped + random, stopped, random, finished, before, inside, after, torn);
  return text;
}

KillOutcome killAtStep(const Write &write, const char *point, long nth,
                       const std::string &journal) {
  Child child(write, [&] { PTStopAtNthCall(point, nth); });
  child.aboutToWrite();
  int status = 0;
  waitpid(child.pid, &status, WUNTRACED);
  return outcomeOf(child.pid, status, journal);
}

KillOutcome killAfter(const Write &write, std::chrono::microseconds delay,
                      const std::string &journal) {
  Child child(write, [] {});
  if (child.aboutToWrite()) std::this_thread::sleep_for(delay);
  kill(child.pid, SIGKILL);
  int status = 0;
  waitpid(child.pid, &status, 0);
  return outcomeOf(child.pid, status, journal);
}

KillOutcome runWhole(const Write &write, std::chrono::microseconds &took) {
  Child child(write, [] {});
  child.aboutToWrite();
  Clock::time_point start = Clock::now();
  int status = 0;
  waitpid(child.pid, &status, 0);
  took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  return outcomeOf(child.pid, status, "");
}

bool isHotJournal(const std::string &path) {
  static const unsigned char kMagic[] = {0xd9, 0xd5, 0x05, 0xf9, 0x20, 0xa1, 0x63, 0xd7};
  std::ifstream in(path, std::ios::binary);
  char header[sizeof kMagic] = {};
  return in.read(header, sizeof header) && std::memcmp(header, kMagic, sizeof kMagic) == 0;
}

std::string integrityOf(const std::string &path) {
  sqlite3 *db = nullptr;
  std::string result = "cannot open";
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      result = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return result;
}

}  // namespace tw::test
