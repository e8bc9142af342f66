// Stores holding many VPN services, made once per size and process for the
// benchmarks, and the payloads they install.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <map>
#include <stdexcept>
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

// Installs `count` L2TP services the way `tarnwick install` does, one
// payload each ("Filler N"): the service with its payload identity, its
// account password and shared secret in the Coffer, the last one selected.
// Fast because it is batched: one preferences commit and one Coffer batch
// per `batch` services, and one apply at the end. The session must hold the
// lock. False when any step fails.
inline bool installServices(ZNPreferencesRef prefs, int count, int batch = 500) {
  Ref<ZNNetworkServiceRef> last;
  for (int first = 0; first < count; first += batch) {
    if (VltBatchBegin() != kVltSuccess) return false;
    for (int i = first; i < count && i < first + batch; ++i) {
      auto payload = l2tpPayload("Filler " + std::to_string(i));
      auto service = Ref<ZNNetworkServiceRef>::adopt(
          JXVPNServiceCreateWithPayloadAtom(payload.get(), prefs));
      if (!service) return false;
      PVStringRef key = nullptr;
      Boolean applies = false;
      auto password =
          Ref<PVTypeRef>::adopt(JXVPNCopyPayloadPassword(payload.get(), &key, &applies));
      PVRelease(JXVPNServiceSetPassword(service.get(), static_cast<PVStringRef>(password.get())));
      auto secret =
          Ref<PVTypeRef>::adopt(JXVPNCopyPayloadSharedSecret(payload.get(), &key, &applies));
      if (!JXVPNServiceSetSharedSecret(service.get(), static_cast<PVStringRef>(secret.get())))
        return false;
      auto identity = dictionary(
          {{kJXPayloadIdentifierKey, PVDictionaryGetValue(payload.get(), kJXPayloadIdentifierKey)},
           {text("PayloadUUID").get(), PVDictionaryGetValue(payload.get(), text("PayloadUUID").get())}});
      if (!JXVPNServiceMergeProtocolConfiguration(service.get(), kJXVPNProtocolTypePayload,
                                                  identity.get()))
        return false;
      last = std::move(service);
    }
    if (VltBatchCommit() != kVltSuccess || !ZNPreferencesCommitChanges(prefs)) return false;
  }
  // Selects, commits and applies.
  return !last || JXVPNUpdateDefaultsAfterAddingService(last.get(), prefs);
}

// Store directories made for the run, removed when the process ends.
struct MadeStores : std::map<int, std::string> {
  ~MadeStores() {
    std::error_code ignored;
    for (const auto &entry : *this) std::filesystem::remove_all(entry.second, ignored);
  }
};

// A store directory holding `count` services installed by installServices;
// made on first use, and the process's store directory after that.
inline const std::string &storeWithServices(int count) {
  static MadeStores made;
  auto found = made.find(count);
  if (found != made.end()) return found->second;
  char pattern[] = "/tmp/tarnwick-bench-XXXXXX";
  std::string directory = mkdtemp(pattern);
  ZNStoreSetDirectory(directory.c_str());  // where the Coffer is
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
  if (!ZNPreferencesLock(prefs.get(), true) || !installServices(prefs.get(), count)) {
    throw std::runtime_error(std::string("cannot fill a store: ") + ZNErrorString(ZNError()));
  }
  ZNPreferencesUnlock(prefs.get());
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
