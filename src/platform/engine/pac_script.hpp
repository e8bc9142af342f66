// A proxy auto-configuration script for fixed proxies: how NetworkManager,
// which takes proxies only as a PAC URL or a PAC script, carries proxies
// configured by hand.
#pragma once

#include <string>
#include <vector>

namespace engine {

struct FixedProxies {
  struct Route {
    std::string scheme;  // "http", "https", "ftp", ...
    std::string proxy;   // "host:port"
  };
  std::vector<Route> routes;          // tried in order
  std::string socks;                  // "host:port" for everything else, or ""
  std::vector<std::string> bypass;    // host patterns (shell wildcards) that go direct
  bool bypassPlainHostNames = false;  // hosts without a dot go direct
};

// FindProxyForURL(url, host) answering as `proxies` says.
std::string pacScript(const FixedProxies &proxies);

}  // namespace engine
