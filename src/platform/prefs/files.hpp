// Files of a store directory: whole-file reads, atomic replacement and the
// inter-process lock. Failures throw zn::Failure.
#pragma once

#include <string>
#include <string_view>

namespace zn {

// The whole file into `out`; false when it does not exist.
bool readFile(const std::string &path, std::string &out);

// Names of the steps of a replacement that a test may break.
struct ReplaceFaults {
  const char *write;
  const char *fsync;
  const char *rename;
};
inline constexpr ReplaceFaults kCommitFaults{"commit.write", "commit.fsync", "commit.rename"};

// Replaces directory/name with `contents`: a temporary file in the same
// directory, fsync, rename over the old file, fsync of the directory. A
// crash at any point leaves the old file or the new one. A failure up to
// the rename throws and leaves the old file and no temporary file. After
// the rename the result tells whether the directory sync succeeded: false
// means the new file is in place but may not survive a crash.
[[nodiscard]] bool replaceFile(const std::string &directory, const std::string &name,
                               std::string_view contents, const ReplaceFaults *faults = nullptr);

// An exclusive lock between processes, held through a dedicated lock file.
//
// flock(2), not fcntl(2) record locks: a record lock belongs to the process
// and vanishes when any descriptor of the file is closed anywhere in it, so
// a library that merely opened and closed the lock file would drop a lock
// another part of the process holds, and two sessions of one process would
// never exclude each other. An flock lock belongs to the open file
// description: each LockFile opens its own, so two of them exclude each
// other in one process as well as across processes, and closing some other
// descriptor of the file leaves the lock alone.
class LockFile {
 public:
  // Opens (creating) the lock file.
  explicit LockFile(const std::string &path);
  LockFile(LockFile &&other) noexcept;
  LockFile &operator=(LockFile &&) = delete;
  ~LockFile();

  // Takes the lock, waiting for it when `wait` is true; false when another
  // holder has it and `wait` is false.
  bool acquire(bool wait);
  void release() noexcept;
  bool held() const { return held_; }

 private:
  int fd_ = -1;
  bool held_ = false;
};

// Holds a lock for one scope, unless its owner holds it already.
class ScopedLock {
 public:
  explicit ScopedLock(LockFile &lock) : lock_(lock), taken_(!lock.held()) {
    if (taken_) lock_.acquire(true);
  }
  ~ScopedLock() {
    if (taken_) lock_.release();
  }
  ScopedLock(const ScopedLock &) = delete;
  ScopedLock &operator=(const ScopedLock &) = delete;

 private:
  LockFile &lock_;
  bool taken_;
};

}  // namespace zn
