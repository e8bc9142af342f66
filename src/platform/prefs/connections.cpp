// Live connections: a registry in the process's store directory maps
// service identifiers to their connection status, as a VPN daemon would
// report it. A controller reads its service's status afresh on every call.
//
//   connections.json  {"<service id>": <status>, ...}, replaced whole
//   connections.lock  flock'ed around every read-modify-write
#include <nlohmann/json.hpp>

#include "platform/prefs/handles.hpp"

struct ZNNetworkConnection : pv::PVObject {
  ZNNetworkConnection(zn::StringRef id, std::string dir)
      : PVObject(pv::Kind::NetworkConnection, false),
        serviceId(std::move(id)),
        directory(std::move(dir)) {}

  const zn::StringRef serviceId;
  const std::string directory;  // the store directory when the controller was made
};

namespace {

using nlohmann::json;
using zn::fail;

constexpr char kRegistryName[] = "connections.json";
constexpr char kRegistryLockName[] = "connections.lock";

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
  // No status changes are ever delivered, so the call-back is not kept.
  return zn::run(__func__, nullptr, [&] {
    zn::StringRef id = zn::copyString(zn::expectString(serviceID));
    return new ZNNetworkConnection(std::move(id), processStoreDirectory());
  });
}

int ZNNetworkConnectionGetStatus(ZNNetworkConnectionRef connection) noexcept {
  return zn::run(__func__, 0, [&] {
    ZNNetworkConnection &controller = expectConnection(connection);
    return statusIn(readRegistry(controller.directory), zn::text(controller.serviceId.get()));
  });
}

Boolean ZNNetworkConnectionStop(ZNNetworkConnectionRef connection, Boolean) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkConnection &controller = expectConnection(connection);
    recordStatus(controller.directory, zn::text(controller.serviceId.get()),
                 kZNNetworkConnectionDisconnected);
    return true;
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
