#include "keys.hpp"

#include <algorithm>

#include "failure.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

constexpr const char *kProtocolTypes[] = {"IPv4", "DNS", "Proxies", "com.velmora.payload"};
constexpr const char *kLayerTypes[] = {"IPSec", "PPP", "VPN", "L2TP", "PPTP", "EAP"};
constexpr const char *kForce = " (--force sets it all the same)";

std::string listed(const std::vector<std::string> &names) {
  std::string text;
  for (const auto &name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

bool hasLayer(ZNNetworkServiceRef service, const std::string &type) {
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    if (textOf(ZNNetworkInterfaceGetInterfaceType(layer)) == type) return true;
  }
  return false;
}

}  // namespace

KeyPlace placeKey(ZNNetworkServiceRef service, const PropertyArguments &arguments, bool strict) {
  KeyPlace place;
  place.made = makeString(arguments.key);
  bool vendorService = PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN);
  auto constantIn = [&](PVStringRef type) {
    return JXVPNGetConfigurationKeyConstant(place.made.get(), type);
  };
  bool refuse = strict && !arguments.force;

  if (!arguments.protocolType.empty() || !arguments.configurationType.empty()) {
    bool protocol = !arguments.protocolType.empty();
    place.type = protocol ? arguments.protocolType : arguments.configurationType;
    place.isProtocolKey = protocol;
    std::vector<std::string> known(protocol ? std::begin(kProtocolTypes) : std::begin(kLayerTypes),
                                   protocol ? std::end(kProtocolTypes) : std::end(kLayerTypes));
    if (!protocol && !vendorType(service).empty()) known.push_back(vendorType(service));
    if (refuse && std::find(known.begin(), known.end(), place.type) == known.end()) {
      throw Failure(Exit::usage, "\"" + place.type + "\" is not a " +
                                     (protocol ? "protocol" : "configuration type") + " of \"" +
                                     serviceName(service) + "\": " + listed(known) + kForce);
    }
    place.anyKey = !protocol && (place.type == "EAP" || place.type == vendorType(service));
    place.key = protocol ? nullptr : constantIn(makeString(place.type).get());
    place.byType = !protocol;
  } else if (JXVPNGetProtocolTypeForKey(place.made.get())) {
    place.isProtocolKey = true;
    place.type = textOf(JXVPNGetProtocolTypeForKey(place.made.get()));
  } else {
    std::vector<PVStringRef> order = {kZNEntNetIPSec, kZNEntNetPPP, kZNEntNetVPN};
    if (vendorService) order.insert(order.begin(), kZNEntNetVPN);
    for (PVStringRef type : order) {
      if ((place.key = constantIn(type))) {
        place.type = textOf(type);
        break;
      }
    }
    // A key of no layer of this service ("AuthName" of PPP in a vendor
    // VPN) that its outer layer knows goes there, as an unclassified key
    // would.
    std::string outer =
        textOf(ZNNetworkInterfaceGetInterfaceType(ZNNetworkServiceGetInterface(service)));
    bool known = JXVPNGetValueKindForKey(place.made.get(), makeString(outer).get()) !=
                 kJXVPNValueKindUnknown;
    if (!place.key || (!hasLayer(service, place.type) && known)) {
      place.key = nullptr;
      place.type = outer;
      place.byType = true;
    }
  }
  if (!place.key) place.key = place.made.get();
  if (!place.type.empty()) {
    place.kind = JXVPNGetValueKindForKey(place.made.get(), makeString(place.type).get());
  }
  if (refuse && place.kind == kJXVPNValueKindUnknown && !place.anyKey) {
    bool given = !arguments.protocolType.empty() || !arguments.configurationType.empty();
    throw Failure(Exit::usage, "\"" + arguments.key + "\" is not a key of the " + place.type +
                                   " configuration" +
                                   (given ? "" : "; --type or --protocol says where it goes") +
                                   kForce);
  }
  return place;
}

}  // namespace tarnwick
