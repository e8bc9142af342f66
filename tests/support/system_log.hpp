// The real system log as a test reads it: a datagram socket that receives
// what syslog(3) sends, and a way to make that socket a process's /dev/log
// without touching the machine's own.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tw::test {

struct SystemLogMessage {
  int priority = -1;  // facility | level, as sent
  std::string text;   // the message after syslog's header
  std::string raw;    // the datagram, header included
};

// Bound at `path` (in a directory of the caller's), read in the background
// so that no sender ever waits on a full queue.
class SystemLogSocket {
 public:
  explicit SystemLogSocket(std::string path);
  ~SystemLogSocket();
  SystemLogSocket(const SystemLogSocket &) = delete;
  SystemLogSocket &operator=(const SystemLogSocket &) = delete;

  // Every message received, including each one sent before the call.
  std::vector<SystemLogMessage> messages();

 private:
  void send(const std::string &datagram) const;
  void read();

  std::string path_;
  int fd_ = -1;
  std::thread reader_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<SystemLogMessage> messages_;
  int marksSent_ = 0;
  int marksSeen_ = 0;
};

// Makes `socketPath` the /dev/log of this process and of every process it
// starts from now on: a private mount namespace whose /dev is a tmpfs that
// links to each entry of the real /dev, and links "log" to the socket.
// Must run while the process has one thread. Returns "" on success, else
// why it cannot (not root, no mount namespaces, threads).
std::string routeSystemLogTo(const std::string &socketPath);

}  // namespace tw::test
