// What the preferences and the Coffer disagree on, and what killed
// sessions left in the store, found and repaired:
//  - Coffer secrets named after services that no longer exist (a service
//    identifier with or without ".XAUTH" or ".SS"; a proxy password, which
//    has neither label nor description, by the service name);
//  - identities and certificates no service uses: a service uses the item
//    its configuration's local certificate names, and every certificate of
//    that item's chain, followed by issuer name;
//  - services whose configuration points at an item the Coffer lacks: a
//    local certificate, or a shared secret said to be in the Coffer;
//  - temporary files of the store directory.
// Other items of the Coffer are none of the check's business.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store.hpp"
#include "values.hpp"

namespace tarnwick {

struct Finding {
  Json json;                    // {"kind": ..., and what it is about}
  std::string text;             // one sentence for people
  std::string afterRepair;      // what a person still has to do, or ""
  std::function<void()> fix;    // changes the Coffer or the session; throws Failure
  bool changesSession = false;  // the fix needs a commit
  bool repaired = false;
};

// Everything that disagrees, read under the preferences lock the caller
// holds (so that no installation is half-way).
std::vector<Finding> findDisagreements(ZNPreferencesRef prefs);

// Runs every fix, commits and applies the session when a fix changed it,
// then removes the leftover files; marks each finding repaired.
void repairDisagreements(ZNPreferencesRef prefs, std::vector<Finding> &findings);

}  // namespace tarnwick
