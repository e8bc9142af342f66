// Small helpers for the preferences store's tests.
#pragma once

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"

namespace tw::test {

template <typename T>
using Ref = pv::Ref<T>;

inline Ref<PVStringRef> str(const char *text) {
  return Ref<PVStringRef>::adopt(PVStringCreateWithCString(text));
}

// An immutable dictionary with string keys. The values must live until it
// returns, as temporaries of the calling expression do.
inline Ref<PVDictionaryRef> dict(
    std::initializer_list<std::pair<const char *, PVTypeRef>> entries) {
  auto building = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const auto &[key, value] : entries)
    PVDictionarySetValue(building.get(), str(key).get(), value);
  return Ref<PVDictionaryRef>::adopt(PVDictionaryCreateCopy(building.get()));
}

inline std::string text(PVStringRef string) {
  return string ? PVStringGetCStringPtr(string) : "(null)";
}

inline std::string fileBytes(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// An array element as the handle type it holds (borrowed).
template <typename T>
T at(PVArrayRef array, PVIndex index) {
  return static_cast<T>(const_cast<void *>(PVArrayGetValueAtIndex(array, index)));
}

// A new L2TP service (PPP over L2TP over IPv4) with the default
// configuration, named `name`, in no set.
inline Ref<ZNNetworkServiceRef> createL2TPService(ZNPreferencesRef prefs, const char *name) {
  auto l2tp = Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, kZNEntNetL2TP));
  auto ppp = Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(l2tp.get(), kZNNetworkInterfaceTypePPP));
  auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs, ppp.get()));
  ZNNetworkServiceEstablishDefaultConfiguration(service.get());
  ZNNetworkServiceSetName(service.get(), str(name).get());
  return service;
}

// The interface types of a chain, outermost first: "PPP/L2TP/IPv4".
inline std::string chainTypes(ZNNetworkInterfaceRef outer) {
  std::string types;
  for (ZNNetworkInterfaceRef layer = outer; layer; layer = ZNNetworkInterfaceGetInterface(layer)) {
    types += (types.empty() ? "" : "/") + text(ZNNetworkInterfaceGetInterfaceType(layer));
  }
  return types;
}

// The names of the session's services, in order, joined by commas.
inline std::string serviceNames(ZNPreferencesRef prefs) {
  auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs));
  std::string names;
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    names +=
        (i ? "," : "") + text(ZNNetworkServiceGetName(at<ZNNetworkServiceRef>(services.get(), i)));
  }
  return names;
}

}  // namespace tw::test
