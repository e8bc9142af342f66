// Stores holding many VPN services, made once per size and process for the
// benchmarks, and the payloads they install.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <map>
#include <string>

#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

namespace bench {

// The benchmarks' applies never reach the machine's NetworkManager (nor pay
// for asking the system bus) unless a benchmark says otherwise.
inline const bool kEngineOff = setenv("TARNWICK_ENGINE", "none", 0) == 0;

template <typename T>
using Ref = pv::Ref<T>;

inline Ref<PVStringRef> text(const std::string &utf8) {
  return Ref<PVStringRef>::adopt(PVStringCreateWithCString(utf8.c_str()));
}

inline Ref<PVDictionaryRef> dictionary(
    std::initializer_list<std::pair<PVTypeRef, PVTypeRef>> entries) {
  auto made = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const auto &[key, value] : entries) PVDictionarySetValue(made.get(), key, value);
  return Ref<PVDictionaryRef>::adopt(PVDictionaryCreateCopy(made.get()));
}

// An L2TP payload like a provisioning agent sends, named `name`.
inline Ref<PVDictionaryRef> l2tpPayload(const std::string &name) {
  auto ppp = dictionary({{kZNPropNetPPPAuthName, text("alice").get()},
                         {kZNPropNetPPPAuthPassword, text("ppp secret").get()},
                         {kZNPropNetPPPCommRemoteAddress, text("vpn.example.com").get()}});
  auto ipsec = dictionary({{kZNPropNetIPSecSharedSecret, text("shared secret").get()}});
  return dictionary({{kJXVPNTypeKey, kZNEntNetL2TP},
                     {kZNPropUserDefinedName, text(name).get()},
                     {kJXPayloadIdentifierKey, text("com.example.vpn." + name).get()},
                     {text("PayloadUUID").get(), text("uuid-" + name).get()},
                     {kZNEntNetPPP, ppp.get()},
                     {kZNEntNetIPSec, ipsec.get()}});
}

// Adds `count` L2TP services with payload data to the session, through the
// platform alone (the library's same-name check would make filling
// quadratic).
inline void addServices(ZNPreferencesRef prefs, int count) {
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs));
  for (int i = 0; i < count; ++i) {
    auto l2tp = Ref<ZNNetworkInterfaceRef>::adopt(
        ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, kZNEntNetL2TP));
    auto ppp = Ref<ZNNetworkInterfaceRef>::adopt(
        ZNNetworkInterfaceCreateWithInterface(l2tp.get(), kZNNetworkInterfaceTypePPP));
    auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs, ppp.get()));
    ZNNetworkServiceEstablishDefaultConfiguration(service.get());
    ZNNetworkServiceAddProtocolType(service.get(), kJXVPNProtocolTypePayload);
    std::string name = "Filler " + std::to_string(i);
    ZNNetworkServiceSetName(service.get(), text(name).get());
    auto payload =
        dictionary({{kJXPayloadIdentifierKey, text("com.example.filler." + name).get()}});
    JXVPNServiceSetProtocolConfiguration(service.get(), kJXVPNProtocolTypePayload, payload.get());
    for (PVIndex s = 0; s < PVArrayGetCount(sets.get()); ++s) {
      ZNNetworkSetAddService(
          static_cast<ZNNetworkSetRef>(const_cast<void *>(PVArrayGetValueAtIndex(sets.get(), s))),
          service.get());
    }
  }
}

// Store directories made for the run, removed when the process ends.
struct MadeStores : std::map<int, std::string> {
  ~MadeStores() {
    std::error_code ignored;
    for (const auto &entry : *this) std::filesystem::remove_all(entry.second, ignored);
  }
};

// A store directory holding `count` committed services; made on first use.
inline const std::string &storeWithServices(int count) {
  static MadeStores made;
  auto found = made.find(count);
  if (found != made.end()) return found->second;
  char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
  std::string directory = mkdtemp(pattern);
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
  addServices(prefs.get(), count);
  ZNPreferencesCommitChanges(prefs.get());
  return made.emplace(count, directory).first->second;
}

}  // namespace bench

namespace bench {

// The caller's whole installation sequence, lock to unlock, with the
// payload's credentials stored; the new service's identifier, or empty.
inline std::string installSequence(PVDictionaryRef payload) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!JXVPNPreferencesLock(prefs.get())) return {};
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(JXVPNServiceCreateWithPayloadAtom(payload, prefs.get()));
  std::string id;
  if (service) {
    PVStringRef key = nullptr;
    Boolean applies = false;
    auto password = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadPassword(payload, &key, &applies));
    if (applies && password) {
      PVRelease(JXVPNServiceSetPassword(service.get(), static_cast<PVStringRef>(password.get())));
    }
    auto secret = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadSharedSecret(payload, &key, &applies));
    if (applies && secret) {
      JXVPNServiceSetSharedSecret(service.get(), static_cast<PVStringRef>(secret.get()));
    }
    auto identity = dictionary(
        {{kJXPayloadIdentifierKey, PVDictionaryGetValue(payload, kJXPayloadIdentifierKey)}});
    JXVPNServiceMergeProtocolConfiguration(service.get(), kJXVPNProtocolTypePayload,
                                           identity.get());
    JXVPNUpdateDefaultsAfterAddingService(service.get(), prefs.get());
    if (JXVPNPreferencesCommitAndApply(prefs.get())) {
      id = PVStringGetCStringPtr(ZNNetworkServiceGetServiceID(service.get()));
    }
  }
  JXVPNPreferencesUnlock(prefs.get());
  return id;
}

// The removal sequence for one service identifier, lock to unlock.
inline void removeSequence(const std::string &serviceID) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!JXVPNPreferencesLock(prefs.get())) return;
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs.get(), text(serviceID).get()));
  if (service) JXVPNServiceRemove(service.get());
  JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(prefs.get());
  JXVPNPreferencesCommitAndApply(prefs.get());
  JXVPNPreferencesUnlock(prefs.get());
}

}  // namespace bench
