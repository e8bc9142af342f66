#include "keys.hpp"

#include "values.hpp"

namespace tarnwick {

ResolvedKey resolveKey(ZNNetworkServiceRef service, const std::string &text) {
  ResolvedKey resolved;
  resolved.made = makeString(text);
  resolved.isProtocolKey = JXVPNGetProtocolTypeForKey(resolved.made.get()) != nullptr;
  if (PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN)) {
    resolved.key = JXVPNGetConfigurationKeyConstant(resolved.made.get(), kZNEntNetVPN);
  }
  if (!resolved.key) resolved.key = JXVPNGetConfigurationKeyConstant(resolved.made.get(), nullptr);
  if (!resolved.key) resolved.key = resolved.made.get();
  return resolved;
}

}  // namespace tarnwick
