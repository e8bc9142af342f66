// Bringing NetworkManager in line with the store's services, and finding
// out how far it is.
//
// A sync maps every VPN service, then sends NetworkManager only what
// differs from what it holds: it adds the connections that are missing,
// updates those whose settings changed, and deletes those of services that
// are gone or that no plugin can express any more. Tarnwick's connections
// are the ones whose UUID is the name-based UUID of a service identifier;
// no other connection is ever touched.
//
// Two depths:
//  - changes (every apply): trusts what the sync remembers it sent to this
//    NetworkManager instance, and checks only that those connections still
//    exist (one ListConnections). A service whose settings did not change
//    costs no call; applying with no change sends nothing. A connection
//    deleted behind Tarnwick's back is added again; one edited behind its
//    back is put right by the next thorough sync.
//  - thorough (tarnwick apply; and whenever NetworkManager restarted or the
//    memory is gone): reads every connection NetworkManager holds and
//    compares each of Tarnwick's with its mapping, so edits and deletions
//    made behind Tarnwick's back, and keyfiles lost in a restart, are put
//    right, and the connections of this store's services that are gone are
//    found by their user data (service and store) and deleted.
//
// An engine that does not answer never fails anything: the sync stops at
// the first call that gets no answer (each call waits at most a few
// seconds, and a sync stops after 30), says so in its report, and the next
// sync carries on from what was done.
#pragma once

#include <string>

#include "platform/engine/report.hpp"
#include "platform/prefs/model.hpp"

namespace engine {

enum class Depth { changes, thorough };

// Brings the engine in line with the services of `document`, the
// committed store in `directory`, and remembers what it sent there.
Report synchronize(zn::Document &document, const std::string &directory, Depth depth);

// Compares what the engine holds with the services of `document`,
// changing nothing.
Report inspect(zn::Document &document, const std::string &directory);

}  // namespace engine
