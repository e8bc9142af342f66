// agent: the secret agent that hands NetworkManager the secrets of the
// store's connections from the Coffer, until it is stopped.
#include <string>

#include "commands.hpp"
#include "credentials.hpp"
#include "failure.hpp"
#include "output.hpp"
#include "tarnwick/platform/agent.h"

namespace tarnwick {
namespace {

// The library names each credential's Coffer item; the agent only says
// which credential it wants.
PVStringRef copyCredential(ZNNetworkServiceRef service, ZNSecretAgentCredential credential,
                           void *) {
  switch (credential) {
    case kZNSecretAgentSharedSecret:
      return copySecret(service, Secret::sharedSecret).release();
    case kZNSecretAgentProxyPassword:
      return copySecret(service, Secret::proxyPassword).release();
    default:
      return copySecret(service, Secret::accountPassword).release();
  }
}

// One line per event on standard error: the journal's, under systemd.
void noteEvent(const char *text, void *) { note(std::string("agent: ") + text); }

}  // namespace

void agentCommand(const GlobalOptions &options) {
  // Opened first, so that a store that cannot be opened fails at once
  // rather than at NetworkManager's first request.
  openStore(options, Access::existing);
  auto agent =
      Ref<ZNSecretAgentRef>::adopt(ZNSecretAgentCreate(copyCredential, noteEvent, nullptr));
  if (!agent) throw Failure(Exit::failure, "cannot make the secret agent");
  if (!ZNSecretAgentRun(agent.get())) {
    throw Failure(Exit::noEngine, "the secret agent cannot reach the system bus, or lost it");
  }
}

}  // namespace tarnwick
