// The secret agent on the system bus (tarnwick/platform/agent.h says what
// it answers): the object NetworkManager calls, its registration with
// NetworkManager's agent manager, and the event loop that serves both.
//
// Who may ask: only the bus client that owns org.freedesktop.NetworkManager
// now. The owner is read once and then followed through NameOwnerChanged,
// which the bus sends before the new owner can reach the agent (it must
// first see the agent register), so no call is judged against a stale
// owner. Each new owner is a NetworkManager that knows nothing of the
// agent: the agent registers with it again.
#pragma once

#include <functional>
#include <string>

#include "platform/engine/agent_secrets.hpp"

namespace engine {

inline constexpr char kAgentIdentifier[] = "org.tarnwick.agent";

class SecretAgent {
 public:
  using Note = std::function<void(const std::string &)>;

  // Answers for the services of the store in `directory`, from `source`;
  // says what it does through `note`, which never receives a secret.
  SecretAgent(std::string directory, CredentialSource source, Note note);

  // Serves until SIGTERM or SIGINT, then unregisters. Throws a transport
  // BusError when the bus cannot be reached or goes away.
  void run();

 private:
  struct Loop;
  const std::string directory_;
  const CredentialSource source_;
  const Note note_;
};

}  // namespace engine
