// What a sync did, or what a status check found, service by service: the
// dictionaries of tarnwick/platform/engine.h in their C++ form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tarnwick/platform/values.h"

namespace engine {

enum class State { inLine, outOfDate, cannotExpress, noEngine };
enum class Action { none, added, updated, unchanged, failed };

struct ServiceOutcome {
  std::string id;
  std::string name;
  std::string type;        // "L2TP", "PPTP", "IPSec", "VPN"
  std::string vendorType;  // for a vendor VPN
  std::string plugin;      // when expressible
  std::string uuid;        // the connection's, when expressible
  std::string reason;      // why it cannot be expressed, or what NetworkManager said
  State state = State::noEngine;
  Action action = Action::none;
};

struct Report {
  std::string engine = "none";
  std::string failure;  // why the engine is not (fully) in line; "" when it is
  std::vector<ServiceOutcome> services;
  std::vector<std::string> deleted;  // services whose connections were deleted
  size_t leftover = 0;               // connections a sync would delete (status only)

  size_t count(Action action) const;
  size_t count(State state) const;
  // The dictionary engine.h describes, for a sync or for a status check.
  // Ownership: create.
  enum Kind { sync, status };
  PVDictionaryRef createDictionary(Kind kind) const;
};

// Adds a sync of the calling thread to what it did since its report was
// last taken: one change of the store often applies more than once (a
// selection that changes applies by itself), and the caller wants to hear
// what the change did as a whole. The services' states and the failure are
// the latest sync's; a service keeps the strongest action any sync took
// (failed, added, updated, unchanged), and the deletions add up.
void recordReport(Report report);
// The calling thread's report, which starts afresh; null when it has not
// synced since. Ownership: create.
PVDictionaryRef takeReport();

// Names the report the calling thread last recorded, while nobody has
// taken it: a sync that would find everything as that report says can then
// leave it as it is, which is what recording it again would do.
using ReportToken = uint64_t;
[[nodiscard]] ReportToken lastRecorded();
[[nodiscard]] bool stillPending(ReportToken token);

}  // namespace engine
