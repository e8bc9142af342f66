// Whole-file reads, atomic replacement and flock-based locks.
#include "platform/prefs/files.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/prefs/error.hpp"

namespace zn {
namespace {

[[noreturn]] void failFromErrno() {
  if (errno == ENOENT || errno == ENOTDIR) fail(kZNStatusNoStore);
  if (errno == EACCES || errno == EPERM || errno == EROFS) fail(kZNStatusAccessDenied);
  fail(kZNStatusIOError);
}

void enterFault(const ReplaceFaults *faults, const char *ReplaceFaults::*step) {
  if (faults && pt::enter(faults->*step)) fail(kZNStatusInjected);
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Removes the temporary file unless the rename consumed it.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  ~TemporaryFile() {
    if (!path_.empty()) unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;
  const std::string &path() const { return path_; }
  void renamed() { path_.clear(); }

 private:
  std::string path_;
};

void writeAll(int fd, std::string_view contents) {
  while (!contents.empty()) {
    ssize_t n = write(fd, contents.data(), contents.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failFromErrno();
    contents.remove_prefix(static_cast<size_t>(n));
  }
}

}  // namespace

bool readFile(const std::string &path, std::string &out) {
  Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno == ENOENT) return false;
    failFromErrno();
  }
  out.clear();
  char buffer[16384];
  for (;;) {
    ssize_t n = read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failFromErrno();
    if (n == 0) return true;
    out.append(buffer, static_cast<size_t>(n));
  }
}

bool replaceFile(const std::string &directory, const std::string &name, std::string_view contents,
                 const ReplaceFaults *faults) {
  std::string pattern = directory + "/." + name + ".XXXXXX";
  int raw = mkostemp(pattern.data(), O_CLOEXEC);
  if (raw < 0) failFromErrno();
  TemporaryFile temporary(pattern);
  {
    Descriptor fd(raw);
    enterFault(faults, &ReplaceFaults::write);
    writeAll(fd.get(), contents);
    enterFault(faults, &ReplaceFaults::fsync);
    if (fsync(fd.get()) != 0) failFromErrno();
  }
  enterFault(faults, &ReplaceFaults::rename);
  if (rename(temporary.path().c_str(), (directory + "/" + name).c_str()) != 0) failFromErrno();
  temporary.renamed();
  // Makes the rename itself durable.
  Descriptor dir(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return dir.get() >= 0 && fsync(dir.get()) == 0;
}

LockFile::LockFile(const std::string &path) {
  fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd_ < 0) failFromErrno();
}

LockFile::LockFile(LockFile &&other) noexcept
    : fd_(std::exchange(other.fd_, -1)), held_(std::exchange(other.held_, false)) {}

LockFile::~LockFile() {
  if (fd_ >= 0) close(fd_);  // drops the lock with the open file description
}

// flock, never fcntl record locks: files.hpp says why.
bool LockFile::acquire(bool wait) {
  if (held_) return true;
  while (flock(fd_, LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
    if (errno == EINTR) continue;
    if (errno == EWOULDBLOCK) return false;
    failFromErrno();
  }
  held_ = true;
  return true;
}

void LockFile::release() noexcept {
  if (!held_) return;
  flock(fd_, LOCK_UN);
  held_ = false;
}

}  // namespace zn
