#include "platform/engine/settings.hpp"

#include <type_traits>
#include <utility>

#include "platform/engine/digest.hpp"

namespace engine {
namespace {

// Length-prefixed, so that no text can pass for another's boundaries.
void token(std::string &out, std::string_view text) {
  out += std::to_string(text.size());
  out += ':';
  out += text;
}

void canonicalValue(std::string &out, const Value &value) {
  if (auto *text = std::get_if<std::string>(&value)) {
    out += 's';
    token(out, *text);
  } else if (auto *flag = std::get_if<bool>(&value)) {
    out += *flag ? "b1" : "b0";
  } else if (auto *number = std::get_if<int32_t>(&value)) {
    out += 'i';
    token(out, std::to_string(*number));
  } else if (auto *unsignedNumber = std::get_if<uint32_t>(&value)) {
    out += 'u';
    token(out, std::to_string(*unsignedNumber));
  } else {
    const auto &map = std::get<StringMap>(value);
    out += 'm';
    token(out, std::to_string(map.size()));
    for (const auto &[key, text] : map) {
      token(out, key);
      token(out, text);
    }
  }
}

// NetworkManager leaves out of what it hands back a key at its default.
bool isDefault(const Value &value) {
  return std::visit(
      [](const auto &v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, StringMap>) {
          return v.empty();
        } else {
          return v == T{};
        }
      },
      value);
}

// Keys the mapping writes only for some services.
constexpr std::pair<const char *, const char *> kOptionalKeys[] = {
    {"proxy", "method"},       {"proxy", "pac-url"},      {"proxy", "pac-script"},
    {"proxy", "browser-only"}, {"ipv4", "never-default"},
};

}  // namespace

const Value *ConnectionSettings::find(const std::string &setting, const std::string &key) const {
  auto found = settings.find(setting);
  if (found == settings.end()) return nullptr;
  auto value = found->second.find(key);
  return value == found->second.end() ? nullptr : &value->second;
}

const std::string *ConnectionSettings::findString(const std::string &setting,
                                                  const std::string &key) const {
  const Value *value = find(setting, key);
  return value ? std::get_if<std::string>(value) : nullptr;
}

std::string ConnectionSettings::canonical() const {
  std::string out;
  for (const auto &[name, setting] : settings) {
    token(out, name);
    token(out, std::to_string(setting.size()));
    for (const auto &[key, value] : setting) {
      token(out, key);
      canonicalValue(out, value);
    }
  }
  return out;
}

std::string ConnectionSettings::digest() const {
  return hex(engine::digest(Algorithm::sha256, {canonical()}));
}

bool ConnectionSettings::heldBy(const ConnectionSettings &actual) const {
  for (const auto &[name, setting] : settings) {
    for (const auto &[key, value] : setting) {
      const Value *held = actual.find(name, key);
      if (held ? *held != value : !isDefault(value)) return false;
    }
  }
  // A key Tarnwick sets only when it is needed must be gone when it is not.
  for (const auto &[name, key] : kOptionalKeys) {
    const Value *held = actual.find(name, key);
    if (held && !find(name, key) && !isDefault(*held)) return false;
  }
  return true;
}

}  // namespace engine
