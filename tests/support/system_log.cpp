#include "support/system_log.hpp"

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace tw::test {
namespace {

// Told apart from anything syslog(3) sends, which begins with '<'.
constexpr char kMark[] = "mark";
constexpr char kStop[] = "stop";

sockaddr_un addressOf(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) std::abort();
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

// "<PRI>Mmm dd hh:mm:ss TAG: TEXT", as the C library formats it.
SystemLogMessage parse(std::string datagram) {
  SystemLogMessage message;
  size_t close = datagram.find('>');
  if (datagram.starts_with('<') && close != std::string::npos) {
    message.priority = std::atoi(datagram.substr(1, close - 1).c_str());
    constexpr size_t kTimestamp = sizeof("Mmm dd hh:mm:ss ") - 1;
    size_t text = datagram.find(": ", close + 1 + kTimestamp);
    if (text != std::string::npos) message.text = datagram.substr(text + 2);
  }
  message.raw = std::move(datagram);
  return message;
}

std::string failed(const char *what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

SystemLogSocket::SystemLogSocket(std::string path) : path_(std::move(path)) {
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = addressOf(path_);
  if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    std::abort();
  }
  chmod(path_.c_str(), 0666);
  reader_ = std::thread([this] { read(); });
}

SystemLogSocket::~SystemLogSocket() {
  send(kStop);
  reader_.join();
  close(fd_);
  unlink(path_.c_str());
}

void SystemLogSocket::send(const std::string &datagram) const {
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = addressOf(path_);
  if (fd < 0 || sendto(fd, datagram.data(), datagram.size(), 0,
                       reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
    std::abort();
  }
  close(fd);
}

void SystemLogSocket::read() {
  std::string buffer(65536, '\0');
  for (;;) {
    ssize_t size = recv(fd_, buffer.data(), buffer.size(), 0);
    if (size < 0) {
      if (errno == EINTR) continue;
      return;
    }
    std::string datagram = buffer.substr(0, static_cast<size_t>(size));
    if (datagram == kStop) return;
    std::lock_guard lock(mutex_);
    if (datagram == kMark) {
      ++marksSeen_;
      arrived_.notify_all();
    } else {
      messages_.push_back(parse(std::move(datagram)));
    }
  }
}

std::vector<SystemLogMessage> SystemLogSocket::messages() {
  // A socket delivers in order: once our mark is read, so is everything
  // sent before it.
  int mark;
  {
    std::lock_guard lock(mutex_);
    mark = ++marksSent_;
  }
  send(kMark);
  std::unique_lock lock(mutex_);
  arrived_.wait(lock, [&] { return marksSeen_ >= mark; });
  return messages_;
}

std::string routeSystemLogTo(const std::string &socketPath) {
  if (unshare(CLONE_NEWNS) != 0) return failed("unshare(CLONE_NEWNS)");
  // Nothing mounted from here on reaches the machine's namespace.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return failed("making / private");
  }
  // The real /dev, bound aside, then moved under the tmpfs that replaces
  // it, so that no directory outside /dev is left behind.
  char aside[] = "/tmp/tarnwick-dev-XXXXXX";
  if (!mkdtemp(aside)) return failed("mkdtemp");
  const std::string real = "/dev/.real";
  bool mounted = mount("/dev", aside, nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
                 mount("tmpfs", "/dev", "tmpfs", MS_NOSUID, "mode=0755") == 0 &&
                 mkdir(real.c_str(), 0755) == 0 &&
                 mount(aside, real.c_str(), nullptr, MS_MOVE, nullptr) == 0;
  std::string why = mounted ? "" : failed("replacing /dev");
  rmdir(aside);
  if (!mounted) return why;
  for (const auto &entry : std::filesystem::directory_iterator(real)) {
    std::string name = entry.path().filename();
    if (name == "log") continue;
    std::error_code error;
    std::filesystem::path target = entry.is_symlink()
                                       ? std::filesystem::read_symlink(entry.path(), error)
                                       : entry.path();
    std::filesystem::create_symlink(target, "/dev/" + name, error);
  }
  if (symlink(socketPath.c_str(), "/dev/log") != 0) return failed("linking /dev/log");
  closelog();  // the next message connects to the new /dev/log
  return "";
}

}  // namespace tw::test
