// A NetworkManager connection's settings as its D-Bus interface carries
// them (a{sa{sv}}: setting name, then key, then a value), limited to the
// value types Tarnwick writes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>

namespace engine {

using StringMap = std::map<std::string, std::string>;  // a{ss}: vpn.data, user.data
using Value = std::variant<std::string, bool, int32_t, uint32_t, StringMap>;
using Setting = std::map<std::string, Value>;

struct ConnectionSettings {
  std::map<std::string, Setting> settings;  // by setting name ("connection", "vpn", ...)

  void set(const std::string &setting, const std::string &key, Value value) {
    settings[setting][key] = std::move(value);
  }
  // Null when absent.
  const Value *find(const std::string &setting, const std::string &key) const;
  const std::string *findString(const std::string &setting, const std::string &key) const;

  // One text for equal settings and for nothing else.
  std::string canonical() const;
  // A digest of the canonical text: what the sync remembers it sent.
  std::string digest() const;
  // True when `actual` (what NetworkManager holds) has every key set here
  // with an equal value. NetworkManager adds keys of its own (defaults,
  // timestamps), so a key only there changes nothing.
  bool heldBy(const ConnectionSettings &actual) const;
};

}  // namespace engine
