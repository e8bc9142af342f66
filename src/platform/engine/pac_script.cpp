#include "platform/engine/pac_script.hpp"

namespace engine {
namespace {

// A JavaScript string literal.
std::string quoted(const std::string &text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '\n' || c == '\r') continue;
    out += c;
  }
  return out + '"';
}

}  // namespace

std::string pacScript(const FixedProxies &proxies) {
  std::string script = "function FindProxyForURL(url, host) {\n";
  if (proxies.bypassPlainHostNames) script += "  if (isPlainHostName(host)) return \"DIRECT\";\n";
  for (const auto &pattern : proxies.bypass) {
    script += "  if (shExpMatch(host, " + quoted(pattern) + ")) return \"DIRECT\";\n";
  }
  for (const auto &route : proxies.routes) {
    std::string prefix = route.scheme + ":";
    script += "  if (url.substring(0, " + std::to_string(prefix.size()) + ") == " + quoted(prefix) +
              ") return " + quoted("PROXY " + route.proxy) + ";\n";
  }
  script +=
      "  return " + quoted(proxies.socks.empty() ? "DIRECT" : "SOCKS " + proxies.socks) + ";\n}\n";
  return script;
}

}  // namespace engine
