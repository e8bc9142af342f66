// connect and disconnect: a service's live connection in the VPN engine,
// started or stopped, and followed until it settles or the wait runs out.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "commands.hpp"
#include "describe.hpp"
#include "failure.hpp"
#include "live_status.hpp"
#include "output.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPoll{100};

// The service's live connection, and the service as the messages name it.
struct Controlled {
  ServiceSummary service;
  Ref<ZNNetworkConnectionRef> connection;

  std::string quotedName() const { return "\"" + shown(service.name) + "\""; }

  // Why the engine refused or ended the connection, in its words.
  std::string reason(const char *otherwise) const {
    auto text = Ref<PVStringRef>::adopt(ZNNetworkConnectionCopyFailureReason(connection.get()));
    return text ? textOf(text.get()) : otherwise;
  }

  // The engine's failure as the tool's: no engine, or refused.
  [[noreturn]] void fail(const std::string &what) const {
    Exit code = ZNError() == kZNStatusNoEngine ? Exit::noEngine : Exit::connectionFailed;
    throw Failure(code, what + ": " + reason(ZNErrorString(ZNError())));
  }

  // A failed read is told by ZNError alone, as 0 is a status too: in this
  // command no other call leaves kZNStatusNoEngine behind without throwing.
  int status() const {
    int status = ZNNetworkConnectionGetStatus(connection.get());
    if (status == kZNNetworkConnectionDisconnected && ZNError() == kZNStatusNoEngine) {
      fail("cannot read the connection of " + quotedName());
    }
    return status;
  }
};

Controlled control(const GlobalOptions &options, const ServiceArgument &serviceArgument) {
  auto prefs = openStore(options, Access::existing);
  auto service = findService(prefs.get(), serviceArgument);
  Controlled controlled{summarize(service.get()), {}};
  controlled.connection = Ref<ZNNetworkConnectionRef>::adopt(ZNNetworkConnectionCreateWithServiceID(
      nullptr, ZNNetworkServiceGetServiceID(service.get()), nullptr, nullptr));
  if (!controlled.connection) {
    throw Failure(Exit::failure, std::string("cannot follow the connection of ") +
                                     controlled.quotedName() + ": " + ZNErrorString(ZNError()));
  }
  return controlled;
}

// "connecting ... 4 s" on standard error while it waits, when standard
// error is a terminal; nothing otherwise, so that logs stay clean.
class Progress {
 public:
  explicit Progress(std::string subject) : subject_(std::move(subject)) {}
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
  }
  void show(int status, Clock::duration elapsed) {
    if (!terminal_) return;
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    std::fprintf(stderr, "\r\033[Ktarnwick: %s %s ... %lld s", subject_.c_str(), statusWord(status),
                 static_cast<long long>(seconds));
    shown_ = true;
  }

 private:
  const std::string subject_;
  const bool terminal_ = isatty(STDERR_FILENO) == 1;
  bool shown_ = false;
};

// Polls the status until `settled` says it has settled or the wait runs
// out; the last status read.
template <typename Settled>
int follow(const Controlled &controlled, double timeoutSeconds, Settled settled) {
  const auto start = Clock::now();
  const auto deadline = start + std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>(timeoutSeconds));
  Progress progress(controlled.quotedName());
  for (;;) {
    int status = controlled.status();
    if (settled(status) || Clock::now() >= deadline) return status;
    progress.show(status, Clock::now() - start);
    std::this_thread::sleep_for(kPoll);
  }
}

void report(const GlobalOptions &options, const Controlled &controlled, int status,
            const std::string &sentence) {
  if (options.json) {
    printJson({{"service", summaryJson(controlled.service)}, {"status", statusWord(status)}});
  } else {
    emit(sentence + "\n");
  }
}

}  // namespace

void connectCommand(const GlobalOptions &options, const ConnectionArguments &arguments) {
  Controlled controlled = control(options, arguments.service);
  int status = controlled.status();
  if (status == kZNNetworkConnectionConnected) {
    report(options, controlled, status, controlled.quotedName() + " is connected already.");
    return;
  }
  // One being made already is followed rather than started again.
  if (status != kZNNetworkConnectionConnecting &&
      !ZNNetworkConnectionStart(controlled.connection.get())) {
    controlled.fail("cannot connect " + controlled.quotedName());
  }
  status = follow(controlled, arguments.timeoutSeconds,
                  [](int s) { return s != kZNNetworkConnectionConnecting; });
  if (status == kZNNetworkConnectionConnected) {
    report(options, controlled, status, "Connected " + controlled.quotedName() + ".");
    return;
  }
  if (status == kZNNetworkConnectionConnecting) {
    throw Failure(Exit::timedOut, controlled.quotedName() + " is still connecting after " +
                                      tableText(Json(arguments.timeoutSeconds)) +
                                      " s; it goes on (tarnwick disconnect stops it)");
  }
  throw Failure(Exit::connectionFailed,
                "cannot connect " + controlled.quotedName() + ": " +
                    controlled.reason("NetworkManager ended it without saying why"));
}

void disconnectCommand(const GlobalOptions &options, const ConnectionArguments &arguments) {
  Controlled controlled = control(options, arguments.service);
  int status = controlled.status();
  if (status == kZNNetworkConnectionDisconnected) {
    report(options, controlled, status, controlled.quotedName() + " is not connected.");
    return;
  }
  if (!ZNNetworkConnectionStop(controlled.connection.get(), true)) {
    controlled.fail("cannot disconnect " + controlled.quotedName());
  }
  status = follow(controlled, arguments.timeoutSeconds,
                  [](int s) { return s == kZNNetworkConnectionDisconnected; });
  if (status != kZNNetworkConnectionDisconnected) {
    throw Failure(Exit::timedOut, controlled.quotedName() + " is still " + statusWord(status) +
                                      " after " + tableText(Json(arguments.timeoutSeconds)) + " s");
  }
  report(options, controlled, status, "Disconnected " + controlled.quotedName() + ".");
}

}  // namespace tarnwick
