// Whole-file reads, atomic replacement and flock-based locks.
#include "platform/prefs/files.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <thread>

#include "platform/prefs/error.hpp"

namespace zn {
namespace {

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

void writeAll(int fd, std::string_view contents) {
  while (!contents.empty()) {
    ssize_t n = write(fd, contents.data(), contents.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failFromErrno();
    contents.remove_prefix(static_cast<size_t>(n));
  }
}

// Which thread holds each lock file through a LockFile of this process.
// The process id keeps a forked child from taking its parent's entries for
// its own.
struct Holder {
  pid_t process;
  std::thread::id thread;
};
std::mutex holdersMutex;
std::map<std::pair<dev_t, ino_t>, Holder> holders;

bool heldByThisThread(dev_t device, ino_t inode) {
  std::lock_guard guard(holdersMutex);
  auto found = holders.find({device, inode});
  return found != holders.end() && found->second.process == getpid() &&
         found->second.thread == std::this_thread::get_id();
}

}  // namespace

void failFromErrno() {
  if (errno == ENOENT || errno == ENOTDIR) fail(kZNStatusNoStore);
  if (errno == EACCES || errno == EPERM || errno == EROFS) fail(kZNStatusAccessDenied);
  fail(kZNStatusIOError);
}

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

TemporaryFile::~TemporaryFile() {
  if (!path_.empty()) unlink(path_.c_str());
}

bool syncDirectory(const std::string &directory) {
  Descriptor dir(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return dir.get() >= 0 && fsync(dir.get()) == 0;
}

bool replaceFile(const std::string &directory, const std::string &name, std::string_view contents) {
  std::string pattern = directory + "/." + name + ".XXXXXX";
  int raw = mkostemp(pattern.data(), O_CLOEXEC);
  if (raw < 0) failFromErrno();
  TemporaryFile temporary(pattern);
  {
    Descriptor fd(raw);
    writeAll(fd.get(), contents);
    if (fsync(fd.get()) != 0) failFromErrno();
  }
  if (rename(temporary.path().c_str(), (directory + "/" + name).c_str()) != 0) failFromErrno();
  temporary.renamed();
  return syncDirectory(directory);
}

LockFile::LockFile(const std::string &path) {
  fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  // A store the caller may only read: flock works on a read-only descriptor too.
  if (fd_ < 0 && (errno == EACCES || errno == EROFS)) {
    fd_ = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  }
  if (fd_ < 0) failFromErrno();
  struct stat info;
  if (fstat(fd_, &info) != 0) {
    close(fd_);
    failFromErrno();
  }
  device_ = info.st_dev;
  inode_ = info.st_ino;
}

LockFile::LockFile(LockFile &&other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      held_(std::exchange(other.held_, false)),
      device_(other.device_),
      inode_(other.inode_) {}

LockFile::~LockFile() {
  release();
  if (fd_ >= 0) close(fd_);
}

// flock, never fcntl record locks: files.hpp says why.
bool LockFile::acquire(bool wait) {
  if (held_) return true;
  if (wait && heldByThisThread(device_, inode_)) fail(kZNStatusLockFailed);
  while (flock(fd_, LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
    if (errno == EINTR) continue;
    if (errno == EWOULDBLOCK) return false;
    failFromErrno();
  }
  try {
    std::lock_guard guard(holdersMutex);
    holders[{device_, inode_}] = {getpid(), std::this_thread::get_id()};
  } catch (...) {
    flock(fd_, LOCK_UN);
    throw;
  }
  held_ = true;
  return true;
}

void LockFile::release() noexcept {
  if (!held_) return;
  {
    std::lock_guard guard(holdersMutex);
    holders.erase({device_, inode_});
  }
  flock(fd_, LOCK_UN);
  held_ = false;
}

}  // namespace zn
