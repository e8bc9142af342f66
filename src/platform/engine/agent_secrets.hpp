// What the secret agent answers NetworkManager's request for the secrets of
// one connection with: the service of the store whose name-based UUID the
// connection carries, and each secret its mapping names, read from the
// credential that answers it.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/engine/credential.hpp"
#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"

namespace engine {

// A service's stored credential, or null when there is none.
using CredentialSource =
    std::function<pv::Ref<PVStringRef>(ZNNetworkServiceRef service, Credential credential)>;

struct SecretAnswer {
  bool ours = false;                           // a connection of one of the store's services
  std::string service;                         // its name, for what the agent says
  std::map<std::string, std::string> secrets;  // by the plugin's secret name
  std::vector<std::string> missing;            // secrets the Coffer has nothing for

  SecretAnswer() = default;
  SecretAnswer(const SecretAnswer &) = delete;
  SecretAnswer &operator=(const SecretAnswer &) = delete;
  SecretAnswer(SecretAnswer &&) = default;
  // The secrets are wiped from memory, not only freed.
  ~SecretAnswer();
};

// The answer for the connection `uuid`, from the services committed in the
// store `directory` now.
SecretAnswer answerSecrets(const std::string &directory, const std::string &uuid,
                           const CredentialSource &source);

// The name of the service whose connection is `uuid`, when it is one of the
// store's.
std::optional<std::string> serviceOf(const std::string &directory, const std::string &uuid);

}  // namespace engine
