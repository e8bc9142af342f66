// tarnwick-demo: creates an L2TP VPN service in the default store, commits
// it, then reads it back through a second session and prints it.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

namespace {

template <typename T>
using Ref = pv::Ref<T>;

[[noreturn]] void die(const char *what) {
  int code = ZNError();
  std::fprintf(stderr, "tarnwick-demo: %s: %s (%d)\n", what, ZNErrorString(code), code);
  std::exit(1);
}

template <typename T>
T check(T value, const char *what) {
  if (!value) die(what);
  return value;
}

// An array element as the handle type it holds.
template <typename T>
T at(PVArrayRef array, PVIndex index) {
  return static_cast<T>(const_cast<void *>(PVArrayGetValueAtIndex(array, index)));
}

std::string text(PVStringRef string) {
  return string ? std::string(PVStringGetCStringPtr(string)) : std::string("(none)");
}

// "Demo L2TP VPN", or "Demo L2TP VPN 2", 3, ... when earlier runs left one.
Ref<PVStringRef> freeServiceName(ZNPreferencesRef prefs) {
  auto services = Ref<PVArrayRef>::adopt(check(ZNNetworkServiceCopyAll(prefs), "listing services"));
  for (int counter = 1;; ++counter) {
    std::string name = "Demo L2TP VPN";
    if (counter > 1) name.append(" ").append(std::to_string(counter));
    bool taken = false;
    for (PVIndex i = 0; i < PVArrayGetCount(services.get()) && !taken; ++i) {
      taken = text(ZNNetworkServiceGetName(at<ZNNetworkServiceRef>(services.get(), i))) == name;
    }
    if (!taken) return Ref<PVStringRef>::adopt(PVStringCreateWithCString(name.c_str()));
  }
}

Ref<PVStringRef> createService(ZNPreferencesRef prefs) {
  auto l2tp = Ref<ZNNetworkInterfaceRef>::adopt(
      check(ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, kZNEntNetL2TP),
            "creating the L2TP layer"));
  auto ppp = Ref<ZNNetworkInterfaceRef>::adopt(
      check(ZNNetworkInterfaceCreateWithInterface(l2tp.get(), kZNNetworkInterfaceTypePPP),
            "creating the PPP layer"));
  auto service = Ref<ZNNetworkServiceRef>::adopt(
      check(ZNNetworkServiceCreate(prefs, ppp.get()), "creating the service"));
  check(ZNNetworkServiceEstablishDefaultConfiguration(service.get()),
        "establishing the default configuration");
  check(ZNNetworkServiceAddProtocolType(service.get(), kJXVPNProtocolTypePayload),
        "adding the payload protocol");
  auto name = freeServiceName(prefs);
  check(ZNNetworkServiceSetName(service.get(), name.get()), "naming the service");

  auto sets = Ref<PVArrayRef>::adopt(check(ZNNetworkSetCopyAll(prefs), "listing sets"));
  for (PVIndex i = 0; i < PVArrayGetCount(sets.get()); ++i) {
    check(ZNNetworkSetAddService(at<ZNNetworkSetRef>(sets.get(), i), service.get()),
          "adding the service to a set");
  }
  return Ref<PVStringRef>::retain(
      check(ZNNetworkServiceGetServiceID(service.get()), "reading the service identifier"));
}

void printService(ZNPreferencesRef prefs, PVStringRef serviceID) {
  auto service = Ref<ZNNetworkServiceRef>::adopt(
      check(ZNNetworkServiceCopy(prefs, serviceID), "finding the committed service"));
  std::printf("service     %s\n", text(ZNNetworkServiceGetServiceID(service.get())).c_str());
  std::printf("name        %s\n", text(ZNNetworkServiceGetName(service.get())).c_str());
  std::printf("enabled     %s\n", ZNNetworkServiceGetEnabled(service.get()) ? "yes" : "no");
  std::string chain;
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service.get()); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    if (!chain.empty()) chain += " over ";
    chain += text(ZNNetworkInterfaceGetInterfaceType(layer));
  }
  std::printf("interfaces  %s\n", chain.c_str());
  auto protocols = Ref<PVArrayRef>::adopt(
      check(ZNNetworkServiceCopyProtocols(service.get()), "listing the protocols"));
  std::string types;
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = at<ZNNetworkProtocolRef>(protocols.get(), i);
    if (!types.empty()) types += ", ";
    types += text(ZNNetworkProtocolGetProtocolType(protocol));
  }
  std::printf("protocols   %s\n", types.c_str());
  std::printf("store       %s\n", ZNPreferencesGetStoreDirectory(prefs));
}

}  // namespace

int main() {
  Ref<PVStringRef> serviceID;
  {
    auto prefs =
        Ref<ZNPreferencesRef>::adopt(check(ZNPreferencesCreate(), "opening the preferences store"));
    check(ZNPreferencesLock(prefs.get(), true), "locking the preferences");
    serviceID = createService(prefs.get());
    check(ZNPreferencesCommitChanges(prefs.get()), "committing the preferences");
    check(ZNPreferencesApplyChanges(prefs.get()), "applying the preferences");
    check(ZNPreferencesUnlock(prefs.get()), "unlocking the preferences");
  }
  auto reader =
      Ref<ZNPreferencesRef>::adopt(check(ZNPreferencesCreate(), "reopening the preferences store"));
  printService(reader.get(), serviceID.get());
  return 0;
}
