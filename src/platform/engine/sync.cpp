#include "platform/engine/sync.hpp"

#include <chrono>
#include <cstdlib>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "platform/engine/choice.hpp"
#include "platform/engine/mapping.hpp"
#include "platform/engine/memory.hpp"
#include "platform/engine/name_uuid.hpp"
#include "platform/engine/network_manager.hpp"

namespace engine {
namespace {

// However much there is to do, a sync gives up after this long; the next
// one carries on.
constexpr std::chrono::seconds kBudget{30};

struct OutOfTime {};

// One VPN service of the store and what it maps to.
struct Planned {
  std::string id;
  std::string uuid;
  Mapping mapping;
  std::string digest;       // of the mapped settings, made when first needed
  ServiceOutcome *outcome;  // in the report

  // Only a sync that reaches the engine compares digests: an apply without
  // one never pays for them.
  const std::string &settingsDigest() {
    if (digest.empty()) digest = mapping.settings.digest();
    return digest;
  }
};

// The services of the store, mapped, with the report they start.
class Plan {
 public:
  Plan(zn::Document &document, const std::string &directory) : store(absolute(directory)) {
    std::vector<ServiceView> views = vpnServices(document);
    VendorTable vendors = VendorTable::load(directory);
    report.services.reserve(views.size());
    services.reserve(views.size());
    for (const ServiceView &view : views) {
      Planned planned{view.id, nameUuid(view.id), mapService(view, vendors, store), "", nullptr};
      ServiceOutcome &outcome = report.services.emplace_back();
      outcome.id = view.id;
      outcome.name = view.name;
      outcome.type = kindName(view.kind);
      outcome.vendorType = view.vendorType;
      outcome.plugin = planned.mapping.plugin;
      outcome.reason = planned.mapping.reason;
      if (planned.mapping.expressible()) {
        outcome.uuid = planned.uuid;
      } else {
        outcome.state = State::cannotExpress;
      }
      planned.outcome = &outcome;
      ids.insert(view.id);
      services.push_back(std::move(planned));
    }
  }

  // Names the engine in the report; false when there is none to talk to.
  bool engineReady(const Choice &choice) {
    report.engine = engineName(choice.kind);
    report.failure = choice.problem;
    return choice.kind == EngineKind::networkManager && choice.bus;
  }

  // Services the engine was to hold but does not (yet).
  void finish() {
    if (report.engine == engineName(EngineKind::none)) return;
    for (auto &outcome : report.services) {
      if (outcome.state == State::noEngine) outcome.state = State::outOfDate;
    }
  }

  const std::string store;
  Report report;
  std::vector<Planned> services;
  std::unordered_set<std::string> ids;  // of every VPN service, expressible or not

 private:
  static std::string absolute(const std::string &directory) {
    char *resolved = realpath(directory.c_str(), nullptr);
    std::string path = resolved ? resolved : directory;
    std::free(resolved);
    return path;
  }
};

// What a thorough pass reads: every connection NetworkManager holds.
struct Holdings {
  struct Held {
    std::string path;
    ConnectionSettings settings;
  };
  std::unordered_map<std::string, Held> byUuid;
  // The store's connections, as (service identifier, UUID): those whose
  // user data names the store and a service whose name-based UUID is theirs.
  std::vector<std::pair<std::string, std::string>> ours;

  const Held *find(const std::string &uuid) const {
    auto found = byUuid.find(uuid);
    return found == byUuid.end() ? nullptr : &found->second;
  }
};

Holdings readHoldings(NetworkManager &nm, const std::string &store) {
  Holdings holdings;
  for (const auto &path : nm.listConnections()) {
    ConnectionSettings settings;
    try {
      settings = nm.settings(path);
    } catch (const BusError &error) {
      if (error.transport()) throw;
      continue;  // deleted since it was listed
    }
    const std::string *uuid = settings.findString("connection", "uuid");
    if (!uuid) continue;
    const Value *data = settings.find("user", "data");
    const StringMap *user = data ? std::get_if<StringMap>(data) : nullptr;
    if (user) {
      auto service = user->find(kServiceIDUserDataKey);
      auto owner = user->find(kStoreUserDataKey);
      if (service != user->end() && owner != user->end() && owner->second == store &&
          nameUuid(service->second) == *uuid) {
        holdings.ours.emplace_back(service->second, *uuid);
      }
    }
    holdings.byUuid[*uuid] = {path, std::move(settings)};
  }
  return holdings;
}

// Makes the changes, one call each, and keeps the memory and the report
// up to date as it goes.
class Pusher {
 public:
  Pusher(NetworkManager &nm, Plan &plan, SyncMemory &memory)
      : nm_(nm),
        plan_(plan),
        memory_(memory),
        deadline_(std::chrono::steady_clock::now() + kBudget) {}

  void changes() {
    std::unordered_set<std::string> existing;
    for (auto &path : nm_.listConnections()) existing.insert(std::move(path));
    auto heldPath = [&](const std::string &id) -> std::optional<std::string> {
      auto found = memory_.services.find(id);
      if (found == memory_.services.end() || !existing.contains(found->second.path)) {
        return std::nullopt;
      }
      return found->second.path;
    };
    for (Planned &service : plan_.services) {
      std::optional<std::string> path = heldPath(service.id);
      if (!service.mapping.expressible()) {
        if (path) remove(service.id, *path);
        memory_.services.erase(service.id);
      } else if (path && memory_.services[service.id].digest == service.settingsDigest()) {
        held(service, *path, Action::unchanged);
      } else {
        put(service, path);
      }
    }
    std::vector<std::string> gone;
    for (const auto &[id, entry] : memory_.services) {
      if (!plan_.ids.contains(id)) gone.push_back(id);
    }
    for (const auto &id : gone) {
      if (auto path = heldPath(id)) remove(id, *path);
      memory_.services.erase(id);
    }
  }

  void thorough() {
    Holdings holdings = readHoldings(nm_, plan_.store);
    memory_.services.clear();
    for (Planned &service : plan_.services) {
      const Holdings::Held *holding = holdings.find(service.uuid);
      if (!service.mapping.expressible()) {
        if (holding) remove(service.id, holding->path);
      } else if (holding && service.mapping.settings.heldBy(holding->settings)) {
        held(service, holding->path, Action::unchanged);
      } else {
        put(service, holding ? std::optional(holding->path) : std::nullopt);
      }
    }
    for (const auto &[id, uuid] : holdings.ours) {
      if (!plan_.ids.contains(id)) remove(id, holdings.find(uuid)->path);
    }
  }

 private:
  void checkTime() const {
    if (std::chrono::steady_clock::now() > deadline_) throw OutOfTime{};
  }

  void held(Planned &service, const std::string &path, Action action) {
    memory_.services[service.id] = {service.settingsDigest(), path};
    service.outcome->state = State::inLine;
    service.outcome->action = action;
  }

  // Adds the connection, or updates it where it is.
  void put(Planned &service, std::optional<std::string> path) {
    checkTime();
    try {
      if (path) {
        try {
          nm_.update(*path, service.mapping.settings);
          held(service, *path, Action::updated);
          return;
        } catch (const BusError &error) {
          if (error.transport() || !error.objectGone()) throw;  // else deleted since: added again
        }
      }
      try {
        held(service, nm_.add(service.mapping.settings), Action::added);
      } catch (const BusError &error) {
        // It may be there after all (made before a crash the memory did
        // not see): then it is updated in place.
        if (error.transport()) throw;
        std::optional<std::string> existing = nm_.connectionByUuid(service.uuid);
        if (!existing) throw;
        nm_.update(*existing, service.mapping.settings);
        held(service, *existing, Action::updated);
      }
    } catch (const BusError &error) {
      if (error.transport()) throw;
      memory_.services.erase(service.id);
      service.outcome->state = State::outOfDate;
      service.outcome->action = Action::failed;
      service.outcome->reason = std::string("NetworkManager refused it: ") + error.what();
    }
  }

  void remove(const std::string &id, const std::string &path) {
    checkTime();
    try {
      nm_.remove(path);
    } catch (const BusError &error) {
      if (error.transport()) throw;
      if (!error.objectGone()) {
        note("NetworkManager refused to delete the connection of " + id + ": " + error.what());
        return;
      }
    }
    plan_.report.deleted.push_back(id);
  }

  void note(const std::string &text) {
    std::string &failure = plan_.report.failure;
    failure += (failure.empty() ? "" : "; ") + text;
  }

  NetworkManager &nm_;
  Plan &plan_;
  SyncMemory &memory_;
  std::chrono::steady_clock::time_point deadline_;
};

// Whether a pass maps the services when there is no engine: a status
// check says what each would become, an apply has nothing to hand them to.
enum class WithoutEngine { skip, map };

// Maps the services, and runs `body` when there is an engine to talk to.
template <typename Body>
Report withEngine(zn::Document &document, const std::string &directory, WithoutEngine without,
                  Body body) {
  Choice choice = chooseEngine();
  if (choice.kind == EngineKind::none && without == WithoutEngine::skip) {
    // Costs nothing however large the store: an apply without an engine
    // only names it.
    Report report;
    report.engine = engineName(choice.kind);
    report.failure = choice.problem;
    return report;
  }
  Plan plan(document, directory);
  if (plan.engineReady(choice)) {
    NetworkManager nm(*choice.bus);
    body(plan, nm, choice.instance);
  }
  plan.finish();
  return std::move(plan.report);
}

}  // namespace

Report synchronize(zn::Document &document, const std::string &directory, Depth depth) {
  return withEngine(document, directory, WithoutEngine::skip,
                    [&](Plan &plan, NetworkManager &nm, const std::string &instance) {
                      SyncMemory memory = SyncMemory::load(directory);
                      const bool thorough = depth == Depth::thorough || memory.instance != instance;
                      memory.instance = instance;
                      Pusher pusher(nm, plan, memory);
                      try {
                        if (thorough) {
                          pusher.thorough();
                        } else {
                          pusher.changes();
                        }
                      } catch (const BusError &error) {
                        // What NetworkManager holds is not known now: the next sync reads it.
                        memory.instance.clear();
                        plan.report.failure = std::string("NetworkManager stopped answering (") +
                                              error.what() + "); the next apply carries on";
                      } catch (const OutOfTime &) {
                        plan.report.failure = "the sync ran out of time; the next apply carries on";
                      }
                      memory.save(directory);
                    });
}

Report inspect(zn::Document &document, const std::string &directory) {
  return withEngine(document, directory, WithoutEngine::map,
                    [](Plan &plan, NetworkManager &nm, const std::string &) {
    try {
      Holdings holdings = readHoldings(nm, plan.store);
      for (Planned &service : plan.services) {
        const Holdings::Held *held = holdings.find(service.uuid);
        if (!service.mapping.expressible()) {
          plan.report.leftover += held != nullptr;
        } else if (held && service.mapping.settings.heldBy(held->settings)) {
          service.outcome->state = State::inLine;
        }
      }
      for (const auto &[id, uuid] : holdings.ours) plan.report.leftover += !plan.ids.contains(id);
    } catch (const BusError &error) {
      plan.report.failure = std::string("NetworkManager stopped answering (") + error.what() + ")";
    }
  });
}

}  // namespace engine
