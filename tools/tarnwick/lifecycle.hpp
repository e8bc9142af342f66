// The installation and removal sequences, lock to unlock.
#pragma once

#include <string>
#include <vector>

#include "describe.hpp"
#include "payload_file.hpp"

namespace tarnwick {

// A payload checked and ready to install.
struct CheckedPayload {
  PayloadFile file;
  PayloadFindings findings;
};

struct Installed {
  std::string file;  // the payload's name
  ServiceSummary service;
  std::vector<ServiceSummary> replaced;  // services of the same payload, removed first
  std::vector<std::string> unusedKeys;
  std::vector<std::string> droppedSecrets;  // secrets the payload carries that nothing keeps
  std::vector<std::string> warnings;
};

// Installs checked payloads in one locked change, all or none: for each,
// removes the services it installed before, creates the new one, stores
// every credential that applies and that the payload carries in the
// Coffer, records the payload's identity; then selects the last service,
// commits and applies. A failure leaves the store and the Coffer as they
// were.
std::vector<Installed> installPayloads(ZNPreferencesRef prefs,
                                       const std::vector<CheckedPayload> &payloads);

// What `remove` names: a service (SERVICE, --id, --name) or a payload file
// (--file, or SERVICE when no service has that identifier or name); several
// services of one name only with `all`.
struct RemovalTarget {
  ServiceArgument service;
  bool all = false;
};

// Removes the services the target names, with their Coffer secrets and
// (when no other service names it) their client identity; reselects,
// commits and applies.
std::vector<ServiceSummary> removeServices(ZNPreferencesRef prefs, const RemovalTarget &target);

}  // namespace tarnwick
