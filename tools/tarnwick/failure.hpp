// The tool's exit codes and the one exception that carries a failure to
// main(), where it becomes a message on stderr and the exit code.
#pragma once

#include <stdexcept>
#include <string>

namespace tarnwick {

// Documented in --help and in tarnwick(1); scripts rely on them.
enum class Exit : int {
  ok = 0,
  failure = 1,           // any failure without a class of its own
  usage = 2,             // the command line, or what standard input gave
  malformedPayload = 3,  // a payload file that cannot be read as a payload
  notFound = 4,          // no such service (or file, or stored secret)
  storeUnavailable = 5,  // the store cannot be opened
  lock = 6,              // the preferences lock cannot be taken
  credentialStore = 7,   // the Coffer did not keep or give a credential
  engine = 8,             // apply: the VPN engine did not take every change
  disagreement = 9,       // check: the preferences and the Coffer disagree
  noEngine = 10,          // connect, disconnect, agent: no VPN engine, or it does not answer
  connectionFailed = 11,  // connect, disconnect: NetworkManager refused, or the connection failed
  timedOut = 12,          // connect, disconnect: no outcome within the time allowed
};

class Failure : public std::runtime_error {
 public:
  Failure(Exit code, const std::string &message) : std::runtime_error(message), code_(code) {}
  Exit code() const { return code_; }

 private:
  Exit code_;
};

}  // namespace tarnwick
