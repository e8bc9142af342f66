#include "platform/engine/settings_message.hpp"

namespace engine {
namespace {

void appendValue(sd_bus_message *m, const Value &value) {
  if (auto *text = std::get_if<std::string>(&value)) {
    check(sd_bus_message_append(m, "v", "s", text->c_str()), "append");
  } else if (auto *flag = std::get_if<bool>(&value)) {
    check(sd_bus_message_append(m, "v", "b", int(*flag)), "append");
  } else if (auto *number = std::get_if<int32_t>(&value)) {
    check(sd_bus_message_append(m, "v", "i", *number), "append");
  } else if (auto *unsignedNumber = std::get_if<uint32_t>(&value)) {
    check(sd_bus_message_append(m, "v", "u", *unsignedNumber), "append");
  } else {
    check(sd_bus_message_open_container(m, 'v', "a{ss}"), "append");
    check(sd_bus_message_open_container(m, 'a', "{ss}"), "append");
    for (const auto &[key, text] : std::get<StringMap>(value)) {
      check(sd_bus_message_append(m, "{ss}", key.c_str(), text.c_str()), "append");
    }
    check(sd_bus_message_close_container(m), "append");
    check(sd_bus_message_close_container(m), "append");
  }
}

// Reads one variant into `value`; false (the variant skipped) for a type
// Tarnwick never writes.
bool readValue(sd_bus_message *m, Value &value) {
  const char *contents = nullptr;
  check(sd_bus_message_peek_type(m, nullptr, &contents), "read");
  std::string type = contents ? contents : "";
  if (type == "s") {
    const char *text = nullptr;
    check(sd_bus_message_read(m, "v", "s", &text), "read");
    value = std::string(text ? text : "");
  } else if (type == "b") {
    int flag = 0;
    check(sd_bus_message_read(m, "v", "b", &flag), "read");
    value = flag != 0;
  } else if (type == "i") {
    int32_t number = 0;
    check(sd_bus_message_read(m, "v", "i", &number), "read");
    value = number;
  } else if (type == "u") {
    uint32_t number = 0;
    check(sd_bus_message_read(m, "v", "u", &number), "read");
    value = number;
  } else if (type == "a{ss}") {
    StringMap map;
    check(sd_bus_message_enter_container(m, 'v', "a{ss}"), "read");
    check(sd_bus_message_enter_container(m, 'a', "{ss}"), "read");
    const char *key = nullptr;
    const char *text = nullptr;
    while (check(sd_bus_message_read(m, "{ss}", &key, &text), "read") > 0) map[key] = text;
    check(sd_bus_message_exit_container(m), "read");
    check(sd_bus_message_exit_container(m), "read");
    value = std::move(map);
  } else {
    check(sd_bus_message_skip(m, "v"), "read");
    return false;
  }
  return true;
}

}  // namespace

void appendSettings(sd_bus_message *m, const ConnectionSettings &connection) {
  check(sd_bus_message_open_container(m, 'a', "{sa{sv}}"), "append");
  for (const auto &[name, setting] : connection.settings) {
    check(sd_bus_message_open_container(m, 'e', "sa{sv}"), "append");
    check(sd_bus_message_append(m, "s", name.c_str()), "append");
    check(sd_bus_message_open_container(m, 'a', "{sv}"), "append");
    for (const auto &[key, value] : setting) {
      check(sd_bus_message_open_container(m, 'e', "sv"), "append");
      check(sd_bus_message_append(m, "s", key.c_str()), "append");
      appendValue(m, value);
      check(sd_bus_message_close_container(m), "append");
    }
    check(sd_bus_message_close_container(m), "append");
    check(sd_bus_message_close_container(m), "append");
  }
  check(sd_bus_message_close_container(m), "append");
}

ConnectionSettings readSettings(sd_bus_message *m) {
  ConnectionSettings connection;
  check(sd_bus_message_enter_container(m, 'a', "{sa{sv}}"), "read");
  while (check(sd_bus_message_enter_container(m, 'e', "sa{sv}"), "read") > 0) {
    const char *name = nullptr;
    check(sd_bus_message_read(m, "s", &name), "read");
    Setting &setting = connection.settings[name];
    check(sd_bus_message_enter_container(m, 'a', "{sv}"), "read");
    while (check(sd_bus_message_enter_container(m, 'e', "sv"), "read") > 0) {
      const char *key = nullptr;
      check(sd_bus_message_read(m, "s", &key), "read");
      Value value;
      if (readValue(m, value)) setting[key] = std::move(value);
      check(sd_bus_message_exit_container(m), "read");
    }
    check(sd_bus_message_exit_container(m), "read");
    check(sd_bus_message_exit_container(m), "read");
  }
  check(sd_bus_message_exit_container(m), "read");
  return connection;
}

}  // namespace engine
