// Live connections. With the VPN engine on, a controller reads, starts and
// stops its service's connection in NetworkManager (engine::LiveConnection).
// With it off, a registry in the process's store directory maps service
// identifiers to their connection status, as a VPN daemon would report it,
// so that a tool or a test can mark a service connecting or connected:
//
//   connections.json  {"<service id>": <status>, ...}, replaced whole
//   connections.lock  flock'ed around every read-modify-write
//
// liveEngine() alone decides between the two. Either way a status is read
// afresh on every call.
#include <atomic>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "platform/engine/live_connection.hpp"
#include "platform/prefs/connections.hpp"
#include "platform/prefs/handles.hpp"

struct ZNNetworkConnection : pv::PVObject {
  ZNNetworkConnection(zn::StringRef id, std::string dir,
                      std::unique_ptr<engine::LiveConnection> live)
      : PVObject(pv::Kind::NetworkConnection, false),
        serviceId(std::move(id)),
        directory(std::move(dir)),
        engine(std::move(live)) {}

  const zn::StringRef serviceId;
  const std::string directory;  // the store directory when the controller was made
  // Null: the registry.
  const std::unique_ptr<engine::LiveConnection> engine;
  // A start the registry could not make: the one failure it has.
  std::atomic<bool> startedWithoutEngine{false};
};

namespace {

using nlohmann::json;
using zn::fail;

using zn::kRegistryLockName;
using zn::kRegistryName;

constexpr char kNoEngine[] =
    "no VPN engine is on (TARNWICK_ENGINE=none, or NetworkManager does not run on the system "
    "bus)";

// NetworkManager when the engine is on, even when it is out of reach (then
// every operation fails with kZNStatusNoEngine); nothing when it is off.
std::optional<engine::Choice> liveEngine() {
  engine::Choice choice = engine::chooseEngine();
  if (choice.kind != engine::EngineKind::networkManager) return std::nullopt;
  return choice;
}

std::string processStoreDirectory() {
  const char *directory = ZNStoreGetDirectory();
  if (!directory) fail(kZNStatusFailed);
  return directory;
}

json readRegistry(const std::string &directory) {
  std::string text;
  if (!zn::readFile(directory + "/" + kRegistryName, text)) return json::object();
  json registry = json::parse(text, nullptr, false);
  if (registry.is_discarded() || !registry.is_object()) fail(kZNStatusCorruptStore);
  return registry;
}

int statusIn(const json &registry, std::string_view serviceId) {
  auto entry = registry.find(std::string(serviceId));
  if (entry == registry.end()) return kZNNetworkConnectionDisconnected;
  if (!entry->is_number_integer()) fail(kZNStatusCorruptStore);
  return entry->get<int>();
}

void recordStatus(const std::string &directory, std::string_view serviceId, int status) {
  zn::LockFile lockFile(directory + "/" + kRegistryLockName);
  zn::ScopedLock locked(lockFile);
  json registry = readRegistry(directory);
  registry[std::string(serviceId)] = status;
  if (!zn::replaceFile(directory, kRegistryName, registry.dump(2) + "\n")) {
    fail(kZNStatusIOError);
  }
}

ZNNetworkConnection &expectConnection(ZNNetworkConnectionRef connection) {
  return zn::expect<ZNNetworkConnection>(connection, pv::Kind::NetworkConnection);
}

}  // namespace

extern "C" {

ZNNetworkConnectionRef ZNNetworkConnectionCreateWithServiceID(PVAllocatorRef, PVStringRef serviceID,
                                                              ZNNetworkConnectionCallBack,
                                                              void *) noexcept {
  return zn::run(__func__, nullptr, [&] {
    zn::StringRef id = zn::copyString(zn::expectString(serviceID));
    std::unique_ptr<engine::LiveConnection> live;
    if (std::optional<engine::Choice> choice = liveEngine()) {
      live = std::make_unique<engine::LiveConnection>(std::move(*choice),
                                                      std::string(zn::text(id.get())));
    }
    return new ZNNetworkConnection(std::move(id), processStoreDirectory(), std::move(live));
  });
}

int ZNNetworkConnectionGetStatus(ZNNetworkConnectionRef connection) noexcept {
  return zn::run(__func__, 0, [&] {
    ZNNetworkConnection &controller = expectConnection(connection);
    if (controller.engine) return controller.engine->status();
    return statusIn(readRegistry(controller.directory), zn::text(controller.serviceId.get()));
  });
}

Boolean ZNNetworkConnectionStop(ZNNetworkConnectionRef connection, Boolean) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkConnection &controller = expectConnection(connection);
    if (controller.engine) {
      controller.engine->stop();
    } else {
      recordStatus(controller.directory, zn::text(controller.serviceId.get()),
                   kZNNetworkConnectionDisconnected);
    }
    return true;
  });
}

Boolean ZNNetworkConnectionStart(ZNNetworkConnectionRef connection) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkConnection &controller = expectConnection(connection);
    // The registry only records what it is told: nothing would ever bring
    // the connection up.
    if (!controller.engine) {
      controller.startedWithoutEngine = true;
      fail(kZNStatusNoEngine);
    }
    controller.engine->start();
    return true;
  });
}

PVStringRef ZNNetworkConnectionCopyFailureReason(ZNNetworkConnectionRef connection) noexcept {
  return zn::run(__func__, nullptr, [&]() -> PVStringRef {
    ZNNetworkConnection &controller = expectConnection(connection);
    std::string failure = controller.engine                 ? controller.engine->failure()
                          : controller.startedWithoutEngine ? kNoEngine
                                                            : "";
    return failure.empty() ? nullptr : zn::makeString(failure).release();
  });
}

PVDictionaryRef ZNNetworkConnectionCopyStatuses(PVArrayRef serviceIDs) noexcept {
  return zn::run(__func__, nullptr, [&] {
    if (!serviceIDs || PVGetTypeID(serviceIDs) != PVArrayGetTypeID()) {
      fail(kZNStatusInvalidArgument);
    }
    std::vector<std::string> ids;
    std::vector<PVTypeRef> keys;
    for (PVIndex i = 0; i < PVArrayGetCount(serviceIDs); ++i) {
      auto id = static_cast<PVStringRef>(PVArrayGetValueAtIndex(serviceIDs, i));
      ids.emplace_back(zn::text(zn::expectString(id)));
      keys.push_back(id);
    }
    std::vector<int> statuses;
    if (std::optional<engine::Choice> choice = liveEngine()) {
      statuses = engine::liveStatuses(*choice, ids);
    } else {
      json registry = readRegistry(processStoreDirectory());
      for (const std::string &id : ids) statuses.push_back(statusIn(registry, id));
    }
    std::vector<pv::Ref<PVNumberRef>> numbers;
    std::vector<PVTypeRef> values;
    for (int status : statuses) {
      numbers.push_back(pv::Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(status)));
      if (!numbers.back()) throw std::bad_alloc();
      values.push_back(numbers.back().get());
    }
    PVDictionaryRef result =
        PVDictionaryCreate(keys.data(), values.data(), static_cast<PVIndex>(keys.size()));
    if (!result) throw std::bad_alloc();
    return result;
  });
}

Boolean ZNNetworkConnectionSetStatusForServiceID(PVStringRef serviceID, int status) noexcept {
  return zn::run(__func__, false, [&] {
    std::string_view id = zn::text(zn::expectString(serviceID));
    if (status < kZNNetworkConnectionDisconnected || status > kZNNetworkConnectionDisconnecting) {
      fail(kZNStatusInvalidArgument);
    }
    recordStatus(processStoreDirectory(), id, status);
    return true;
  });
}

}  // extern "C"
