// The credentials a secret agent answers a plugin's secrets from, each kept
// in the Coffer under the library's naming.
#pragma once

namespace engine {

// Same values as ZNSecretAgentCredential (tarnwick/platform/agent.h).
enum class Credential { accountPassword = 0, sharedSecret = 1, proxyPassword = 2 };

}  // namespace engine
