#include "platform/engine/store_view.hpp"

#include <optional>

namespace engine {
namespace {

PVDictionaryRef extended(const zn::Layer &layer, const char *type) {
  auto found = layer.extended.find(type);
  return found == layer.extended.end() ? nullptr : found->second.get();
}

PVDictionaryRef protocol(zn::ServiceBody &body, const char *type) {
  zn::Protocol *found = body.findProtocol(type);
  return found ? found->configuration.get() : nullptr;
}

// The kind of a chain, outermost layer first; none for a chain the
// library does not build.
std::optional<ServiceKind> kindOf(const std::vector<zn::Layer> &chain) {
  std::string_view outer = zn::text(chain[0].type.get());
  std::string_view below = chain.size() > 1 ? zn::text(chain[1].type.get()) : "";
  if (outer == "IPSec") return ServiceKind::ipsec;
  if (outer == "PPP" && below == "L2TP") return ServiceKind::l2tp;
  if (outer == "PPP" && below == "PPTP") return ServiceKind::pptp;
  if (outer == "VPN" && !below.empty() && below != "IPv4") return ServiceKind::vendor;
  return std::nullopt;
}

}  // namespace

const char *kindName(ServiceKind kind) {
  switch (kind) {
    case ServiceKind::l2tp:
      return "L2TP";
    case ServiceKind::pptp:
      return "PPTP";
    case ServiceKind::ipsec:
      return "IPSec";
    case ServiceKind::vendor:
      return "VPN";
  }
  return "";
}

std::optional<ServiceView> vpnService(zn::Service &service) {
  zn::ServiceBody &body = service.body();
  std::optional<ServiceKind> kind = kindOf(body.chain);
  if (!kind) return std::nullopt;
  ServiceView view;
  view.id = zn::text(service.id.get());
  view.name = service.name ? std::string(zn::text(service.name.get())) : std::string();
  view.kind = *kind;
  const zn::Layer &outer = body.chain[0];
  switch (*kind) {
    case ServiceKind::ipsec:
      view.ipsec = outer.configuration.get();
      break;
    case ServiceKind::l2tp:
    case ServiceKind::pptp:
      view.ppp = outer.configuration.get();
      view.ipsec = extended(outer, "IPSec");
      break;
    case ServiceKind::vendor:
      view.vpn = outer.configuration.get();
      view.vendorType = zn::text(body.chain[1].type.get());
      view.vendor = body.chain[1].configuration.get();
      break;
  }
  view.ipv4 = protocol(body, "IPv4");
  view.proxies = protocol(body, "Proxies");
  return view;
}

std::vector<ServiceView> vpnServices(zn::Document &document) {
  std::vector<ServiceView> views;
  views.reserve(document.services.size());
  for (auto &entry : document.services) {
    if (std::optional<ServiceView> view = vpnService(entry.second.value)) {
      views.push_back(std::move(*view));
    }
  }
  return views;
}

}  // namespace engine
