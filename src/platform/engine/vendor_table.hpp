// The administrator's table of vendor VPNs: for each vendor subtype, the
// NetworkManager plugin that carries it and where each of the plugin's
// vpn.data keys takes its value. A file in the store directory,
// vendor-plugins.conf:
//
//   # comment
//   [com.example.vendor.vpn]                      a vendor subtype
//   service-type = org.freedesktop.NetworkManager.openconnect
//   data.gateway = VPN.RemoteAddress              a key of the VPN layer
//   data.usergroup = Vendor.Realm                 a key of the vendor layer
//   data.protocol = "anyconnect"                  a fixed text
//   secret = password                             written "password-flags=1",
//                                                 answered from the account password
//   secret.group-password = shared-secret         answered from the shared secret
//                                                 (or account-password, proxy-password)
//
// A missing file is an empty table. A section with an error maps nothing,
// and says why.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/engine/credential.hpp"

namespace engine {

inline constexpr char kVendorTableName[] = "vendor-plugins.conf";

struct VendorSource {
  enum Layer { vpn, vendor, literal } layer = literal;
  std::string text;  // the key, or the fixed text
};

struct VendorPlugin {
  std::string serviceType;
  std::map<std::string, VendorSource> data;   // by vpn.data key
  std::map<std::string, Credential> secrets;  // by the plugin's secret name
  std::string error;                          // non-empty: the section cannot be used, and why
};

class VendorTable {
 public:
  // Reads directory/vendor-plugins.conf, if there is one.
  static VendorTable load(const std::string &directory);
  static VendorTable parse(const std::string &text);

  // Null when the table names no plugin for the subtype.
  const VendorPlugin *find(const std::string &subtype) const;

 private:
  std::map<std::string, VendorPlugin> plugins_;
};

}  // namespace engine
