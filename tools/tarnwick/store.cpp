#include "store.hpp"

#include <cstdio>

#include "failure.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

std::string platformError() {
  int code = ZNError();
  return std::string(ZNErrorString(code)) + " (" + std::to_string(code) + ")";
}

// Another session that commits between our open and our lock makes ours
// stale; with nothing changed yet, re-reading and trying again is safe.
constexpr int kStaleRetries = 64;

}  // namespace

void chooseStore(const std::string &directory) {
  // Copied first: the default's text lives only until the next setter call.
  std::string chosen = directory.empty() ? ZNStoreGetDirectory() : directory;
  ZNStoreSetDirectory(chosen.c_str());
}

Ref<ZNPreferencesRef> openPreferences(const std::string &explicitDirectory) {
  // The platform makes the default store's directory (mode 0700, parents as
  // needed); a directory named on the command line must exist, so that a
  // mistyped one is not quietly made into an empty store.
  auto prefs = Ref<ZNPreferencesRef>::adopt(
      explicitDirectory.empty() ? ZNPreferencesCreate()
                                : ZNPreferencesCreateWithStore(explicitDirectory.c_str()));
  if (!prefs) {
    throw Failure(Exit::storeUnavailable, std::string("cannot open the store ") +
                                              ZNStoreGetDirectory() + ": " + platformError());
  }
  return prefs;
}

void lockPreferences(ZNPreferencesRef prefs) {
  if (ZNPreferencesLock(prefs, false)) return;
  if (ZNError() == kZNStatusLockFailed) {
    std::fprintf(stderr,
                 "tarnwick: waiting for another process to release the preferences lock...\n");
  }
  for (int attempt = 0;; ++attempt) {
    if (JXVPNPreferencesLock(prefs)) return;
    if (ZNError() != kZNStatusStale || attempt == kStaleRetries) break;
    (void)ZNPreferencesSynchronize(prefs);  // the next attempt tells whether it helped
  }
  throw Failure(Exit::lock, "cannot lock the preferences: " + platformError());
}

std::vector<Ref<ZNNetworkServiceRef>> vpnServices(ZNPreferencesRef prefs) {
  auto all = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs));
  std::vector<Ref<ZNNetworkServiceRef>> services;
  for (PVIndex i = 0; i < PVArrayGetCount(all.get()); ++i) {
    services.push_back(
        Ref<ZNNetworkServiceRef>::retain(elementAt<ZNNetworkServiceRef>(all.get(), i)));
  }
  return services;
}

std::vector<Ref<ZNNetworkServiceRef>> servicesNamed(ZNPreferencesRef prefs,
                                                    const std::string &name) {
  std::vector<Ref<ZNNetworkServiceRef>> named;
  for (auto &service : vpnServices(prefs)) {
    if (serviceName(service.get()) == name) named.push_back(service);
  }
  return named;
}

Ref<ZNNetworkServiceRef> findService(ZNPreferencesRef prefs, const std::string &idOrName) {
  if (auto id = Ref<PVStringRef>::adopt(PVStringCreateWithCString(idOrName.c_str()))) {
    auto byID = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs, id.get()));
    if (byID && JXVPNServiceGetType(byID.get())) return byID;
  }
  auto named = servicesNamed(prefs, idOrName);
  if (named.empty()) {
    throw Failure(Exit::notFound, "no VPN service has the identifier or name \"" + idOrName + "\"");
  }
  if (named.size() > 1) {
    std::string ids;
    for (auto &service : named) ids.append(" ").append(serviceID(service.get()));
    throw Failure(Exit::failure,
                  "several VPN services are named \"" + idOrName + "\"; use an identifier:" + ids);
  }
  return named.front();
}

std::string serviceID(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetServiceID(service));
}

std::string serviceName(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetName(service));
}

std::string vendorType(ZNNetworkServiceRef service) {
  if (!PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN)) return "";
  ZNNetworkInterfaceRef vendor =
      ZNNetworkInterfaceGetInterface(ZNNetworkServiceGetInterface(service));
  return textOf(ZNNetworkInterfaceGetInterfaceType(vendor));
}

}  // namespace tarnwick
