// get, set, unset and select: one property, or the selected service.
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <functional>

#include "commands.hpp"
#include "credentials.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "keys.hpp"
#include "output.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

void refuseSecretKey(const std::string &key, const char *why) {
  if (isSecretKey(key)) throw Failure(Exit::usage, "\"" + key + "\" holds a secret: " + why);
}

[[noreturn]] void badValue(const std::string &key, const char *takes, const std::string &text) {
  throw Failure(Exit::usage, "\"" + key + "\" takes " + takes + ", not \"" + text + "\"");
}

// VALUE as JSON when it parses ("true", "3", "\"text\"", {"$data": ...}),
// else as the text itself: for keys whose kind nobody knows.
Ref<PVTypeRef> parseFreeValue(const std::string &text) {
  bool notJson = false;
  auto value = valueFromJsonText(text, {"VALUE", std::filesystem::current_path()}, &notJson);
  if (notJson) return Ref<PVTypeRef>::retain(makeString(text).get());
  return value;
}

Ref<PVTypeRef> numberValue(int64_t number) {
  return Ref<PVTypeRef>::adopt(PVNumberCreateWithInt64(number));
}

// A list of strings: a JSON array, or the items of text separated by commas.
Ref<PVTypeRef> stringListValue(const std::string &key, const std::string &text) {
  if (!text.empty() && text.front() == '[') {
    auto value = parseFreeValue(text);
    bool strings = PVGetTypeID(value.get()) == PVArrayGetTypeID();
    auto array = static_cast<PVArrayRef>(value.get());
    for (PVIndex i = 0; strings && i < PVArrayGetCount(array); ++i) {
      strings = PVGetTypeID(PVArrayGetValueAtIndex(array, i)) == PVStringGetTypeID();
    }
    if (!strings) badValue(key, "a list of strings", text);
    return value;
  }
  auto list = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  for (size_t start = 0; start < text.size();) {
    size_t comma = std::min(text.find(',', start), text.size());
    std::string item = text.substr(start, comma - start);
    item.erase(0, item.find_first_not_of(' '));
    item.erase(item.find_last_not_of(' ') + 1);
    if (!item.empty()) PVArrayAppendValue(list.get(), makeString(item).get());
    start = comma + 1;
  }
  return Ref<PVTypeRef>::retain(list.get());
}

// VALUE converted to the kind the key holds: "12345" stays text for a
// string key, and "yes" is a flag only where a flag belongs.
Ref<PVTypeRef> convertValue(const KeyPlace &place, const std::string &key,
                            const std::string &text) {
  switch (place.kind) {
    case kJXVPNValueKindString:
      return Ref<PVTypeRef>::retain(makeString(text).get());
    case kJXVPNValueKindNumber: {
      int64_t number = 0;
      auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
      if (error != std::errc() || end != text.data() + text.size()) {
        badValue(key, "a whole number", text);
      }
      return numberValue(number);
    }
    case kJXVPNValueKindFlag:
      for (const char *yes : {"1", "true", "yes", "on"}) {
        if (text == yes) return numberValue(1);
      }
      for (const char *no : {"0", "false", "no", "off"}) {
        if (text == no) return numberValue(0);
      }
      badValue(key, "yes or no (1 or 0, true or false, on or off)", text);
    case kJXVPNValueKindData: {
      auto value = parseFreeValue(text);
      if (PVGetTypeID(value.get()) != PVDataGetTypeID()) {
        badValue(key, "data ({\"$data\": \"<base64>\"})", text);
      }
      return value;
    }
    case kJXVPNValueKindStringArray:
      return stringListValue(key, text);
    default:
      return parseFreeValue(text);
  }
}

PVTypeRef readProperty(ZNNetworkServiceRef service, const KeyPlace &place,
                       const PropertyArguments &arguments) {
  auto type = makeString(place.type);
  if (!arguments.protocolType.empty()) {
    return PVDictionaryGetValue(JXVPNServiceGetProtocolConfiguration(service, type.get()),
                                place.key);
  }
  if (place.byType) return JXVPNServiceGetConfigurationPropertyForType(service, place.key, type.get());
  if (place.isProtocolKey) return JXVPNServiceGetProtocolConfigurationProperty(service, place.key);
  return JXVPNServiceGetConfigurationProperty(service, place.key);
}

bool writeProperty(ZNNetworkServiceRef service, const KeyPlace &place,
                   const PropertyArguments &arguments, PVTypeRef value) {
  auto type = makeString(place.type);
  if (!arguments.protocolType.empty()) {
    const PVTypeRef keys[] = {place.key};
    const PVTypeRef values[] = {value};
    auto entries = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
    return JXVPNServiceMergeProtocolConfiguration(service, type.get(), entries.get());
  }
  if (place.byType) {
    return JXVPNServiceSetConfigurationPropertyForType(service, place.key, value, type.get());
  }
  if (place.isProtocolKey) {
    return JXVPNServiceSetProtocolConfigurationProperty(service, place.key, value);
  }
  return JXVPNServiceSetConfigurationProperty(service, place.key, value);
}

// The configuration without the key, written back whole.
bool removeProperty(ZNNetworkServiceRef service, const KeyPlace &place,
                    const PropertyArguments &arguments) {
  auto type = makeString(place.type);
  auto keys = Ref<PVArrayRef>::adopt(PVArrayCreate(reinterpret_cast<const PVTypeRef *>(&place.key), 1));
  if (!arguments.protocolType.empty() || place.byType) {
    bool protocol = !arguments.protocolType.empty();
    PVDictionaryRef configuration = protocol
                                        ? JXVPNServiceGetProtocolConfiguration(service, type.get())
                                        : JXVPNServiceGetConfiguration(service, type.get());
    auto copy = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(configuration));
    if (!copy) return false;
    PVDictionaryRemoveValue(copy.get(), place.key);
    return protocol ? JXVPNServiceSetProtocolConfiguration(service, type.get(), copy.get())
                    : JXVPNServiceSetConfiguration(service, type.get(), copy.get());
  }
  if (place.isProtocolKey) {
    return JXVPNServiceRemoveProtocolConfigurationProperties(service, keys.get());
  }
  return JXVPNServiceRemoveConfigurationProperties(service, keys.get());
}

// The account password's Coffer item is named after the account ("AuthName",
// "XAuthName"): a change of the name moves the password with it rather than
// leaving it where nothing finds it. `change` makes the change itself.
void keepingAccountPassword(Transaction &transaction, const Ref<ZNNetworkServiceRef> &service,
                            const KeyPlace &place, const PropertyArguments &arguments,
                            const std::function<void()> &change) {
  auto password = copySecret(service.get(), Secret::accountPassword);
  bool accountName = arguments.key == "AuthName" || arguments.key == "XAuthName";
  if (!password || !accountName) {
    change();
    return;
  }
  transaction.setSecret(service, Secret::accountPassword, nullptr);
  // Undone before the store is re-read, so the old name holds again for the
  // undo of the removal above.
  PVTypeRef old = readProperty(service.get(), place, arguments);
  transaction.onUndo([service, place, arguments, old = Ref<PVTypeRef>::retain(old)] {
    if (old) {
      (void)writeProperty(service.get(), place, arguments, old.get());
    } else {
      (void)removeProperty(service.get(), place, arguments);
    }
  });
  change();
  transaction.setSecret(service, Secret::accountPassword, password.get());
}

[[noreturn]] void noValue(ZNNetworkServiceRef service, const std::string &key) {
  throw Failure(Exit::notFound,
                "\"" + serviceName(service) + "\" has no value for \"" + key + "\"");
}

// What set, unset and select print: the service, and what the engine did.
void reportChange(const GlobalOptions &options, ZNNetworkServiceRef service, Json fields,
                  const std::string &line) {
  if (options.json) {
    Json json = {{"service", summaryJson(summarize(service))}};
    json.update(fields);
    json["engine"] = takeEngineReport();
    printJson(json);
    return;
  }
  if (!line.empty()) emit(line + "\n");
  printEngineLine();
}

}  // namespace

void getCommand(const GlobalOptions &options, const PropertyArguments &arguments) {
  refuseSecretKey(arguments.key, "tarnwick never prints one");
  auto prefs = openStore(options, Access::existing);
  auto service = findService(prefs.get(), arguments.service);
  KeyPlace place = placeKey(service.get(), arguments, false);
  PVTypeRef value = readProperty(service.get(), place, arguments);
  if (!value) noValue(service.get(), arguments.key);
  if (options.json) {
    printJson({{"service", summaryJson(summarize(service.get()))},
               {"key", arguments.key},
               {"value", jsonFromValue(value)}});
    return;
  }
  Json json = jsonFromValue(value);
  if (json.is_object() && !isDataJson(json)) {
    printFields(json);
  } else if (json.is_array() && std::any_of(json.begin(), json.end(), [](const Json &item) {
               return item.is_structured() && !isDataJson(item);
             })) {
    printFields({{arguments.key, json}});
  } else {
    emit(shown(tableText(json)) + "\n");
  }
}

void setCommand(const GlobalOptions &options, const PropertyArguments &arguments) {
  refuseSecretKey(arguments.key,
                  "set it with `tarnwick password set` or `tarnwick secret set`, which keep it in "
                  "the Coffer");
  auto prefs = openStore(options, Access::existing);
  Transaction transaction(prefs.get(), Transaction::Writes::preferences);
  auto service = findService(prefs.get(), arguments.service);
  KeyPlace place = placeKey(service.get(), arguments, true);
  auto value = convertValue(place, arguments.key, arguments.value);
  keepingAccountPassword(transaction, service, place, arguments, [&] {
    if (!writeProperty(service.get(), place, arguments, value.get())) {
      throw Failure(Exit::failure, "cannot set \"" + arguments.key + "\" of \"" +
                                       serviceName(service.get()) +
                                       "\": " + ZNErrorString(ZNError()));
    }
  });
  transaction.commit();
  reportChange(options, service.get(), {{"key", arguments.key}, {"value", jsonFromValue(value.get())}},
               "");
}

void unsetCommand(const GlobalOptions &options, const PropertyArguments &arguments) {
  auto prefs = openStore(options, Access::existing);
  Transaction transaction(prefs.get(), Transaction::Writes::preferences);
  auto service = findService(prefs.get(), arguments.service);
  KeyPlace place = placeKey(service.get(), arguments, false);
  if (!readProperty(service.get(), place, arguments)) noValue(service.get(), arguments.key);
  keepingAccountPassword(transaction, service, place, arguments, [&] {
    if (!removeProperty(service.get(), place, arguments)) {
      throw Failure(Exit::failure, "cannot remove \"" + arguments.key + "\" of \"" +
                                       serviceName(service.get()) +
                                       "\": " + ZNErrorString(ZNError()));
    }
  });
  transaction.commit();
  reportChange(options, service.get(), {{"key", arguments.key}},
               "Removed \"" + shown(arguments.key) + "\" of \"" +
                   shown(serviceName(service.get())) + "\"");
}

void selectCommand(const GlobalOptions &options, const ServiceArgument &serviceArgument) {
  auto prefs = openStore(options, Access::existing);
  Transaction transaction(prefs.get(), Transaction::Writes::preferences);
  auto service = findService(prefs.get(), serviceArgument);
  if (!JXVPNSetSelectedService(service.get(), prefs.get(), true)) {
    throw Failure(Exit::failure, "cannot select \"" + serviceName(service.get()) +
                                     "\": " + ZNErrorString(ZNError()));
  }
  transaction.commit();
  reportChange(options, service.get(), Json::object(),
               "Selected \"" + shown(serviceName(service.get())) + "\": " +
                   serviceID(service.get()));
}

}  // namespace tarnwick
