// Killing a process in the middle of a write, at every step the testing
// interface can stop it at and at random moments, and saying where the
// kill fell: before the write began, inside it (a journal was left for
// SQLite to roll back), or after its commit point.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace tw::test {

// The size of a kill run: random moments and steps; scripts/crash-test sets
// TARNWICK_KILLS="random" for the full count.
struct KillSize {
  int random = 40;
};
KillSize killSize();

enum class Fell { before, inside, after };

struct KillTally {
  int stopped = 0;   // killed where the testing interface stopped it
  int random = 0;    // killed after a random delay
  int finished = 0;  // ended on their own before the kill: no kill
  int before = 0, inside = 0, after = 0;
  int torn = 0;
  void count(Fell fell);
  std::string summary() const;
  // Fails the test unless no kill tore the state, many fell at a step, and
  // kills fell both before the commit point and after it.
  void expectSound() const;
};

// A write run in a forked child: `prepare` runs first, then the child
// tells the parent it is about to `write`, then `write` runs; the child
// exits 0 when both succeed.
struct Write {
  std::function<bool()> prepare;
  std::function<bool()> write;
};

struct KillOutcome {
  bool killed = false;      // false: the child ended on its own
  bool hotJournal = false;  // a journal SQLite will roll back was left
  int exitStatus = 0;       // when not killed
};

// Runs `write` and kills its child once the `nth` call of `point` (counted
// from the start of the write) has stopped it; not killed when the child
// never gets there.
KillOutcome killAtStep(const Write &write, const char *point, long nth, const std::string &journal);
// Runs `write` and kills its child `delay` after it began the write.
KillOutcome killAfter(const Write &write, std::chrono::microseconds delay,
                      const std::string &journal);
// Runs `write` to its end; `took` is how long, from the child's word to
// its exit.
KillOutcome runWhole(const Write &write, std::chrono::microseconds &took);

// True when `path` is a rollback journal SQLite will roll back: not empty
// and beginning with the journal's magic number.
bool isHotJournal(const std::string &path);

// "ok" when SQLite finds nothing wrong in the database at `path`.
std::string integrityOf(const std::string &path);

}  // namespace tw::test
