// get, set and select: one property, or the selected service.
#include <cstdio>
#include <filesystem>

#include "commands.hpp"
#include "credentials.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "keys.hpp"
#include "output.hpp"
#include "payload_file.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

void refuseSecretKey(const std::string &key, const char *why) {
  if (isSecretKey(key)) throw Failure(Exit::usage, "\"" + key + "\" holds a secret: " + why);
}

// VALUE as JSON when it parses ("true", "3", "\"text\"", {"$data": ...}),
// else as the text itself.
Ref<PVTypeRef> parseValue(const std::string &text) {
  bool notJson = false;
  auto value = valueFromJsonText(text, {"VALUE", std::filesystem::current_path()}, &notJson);
  if (notJson) return Ref<PVTypeRef>::retain(makeString(text).get());
  return value;
}

PVTypeRef readProperty(ZNNetworkServiceRef service, const PropertyArguments &arguments) {
  ResolvedKey key = resolveKey(service, arguments.key);
  if (!arguments.protocolType.empty()) {
    PVDictionaryRef configuration =
        JXVPNServiceGetProtocolConfiguration(service, makeString(arguments.protocolType).get());
    return PVDictionaryGetValue(configuration, key.key);
  }
  if (!arguments.configurationType.empty()) {
    return JXVPNServiceGetConfigurationPropertyForType(
        service, key.key, makeString(arguments.configurationType).get());
  }
  if (key.isProtocolKey) return JXVPNServiceGetProtocolConfigurationProperty(service, key.key);
  return JXVPNServiceGetConfigurationProperty(service, key.key);
}

bool writeProperty(ZNNetworkServiceRef service, const PropertyArguments &arguments,
                   PVTypeRef value) {
  ResolvedKey key = resolveKey(service, arguments.key);
  if (!arguments.protocolType.empty()) {
    const PVTypeRef keys[] = {key.key};
    const PVTypeRef values[] = {value};
    auto entries = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
    return JXVPNServiceMergeProtocolConfiguration(service, makeString(arguments.protocolType).get(),
                                                  entries.get());
  }
  if (!arguments.configurationType.empty()) {
    return JXVPNServiceSetConfigurationPropertyForType(
        service, key.key, value, makeString(arguments.configurationType).get());
  }
  if (key.isProtocolKey)
    return JXVPNServiceSetProtocolConfigurationProperty(service, key.key, value);
  return JXVPNServiceSetConfigurationProperty(service, key.key, value);
}

}  // namespace

void getCommand(const GlobalOptions &options, const PropertyArguments &arguments) {
  refuseSecretKey(arguments.key, "tarnwick never prints one");
  auto prefs = openStore(options);
  auto service = findService(prefs.get(), arguments.service);
  PVTypeRef value = readProperty(service.get(), arguments);
  if (!value) {
    throw Failure(Exit::notFound, "\"" + serviceName(service.get()) + "\" has no value for \"" +
                                      arguments.key + "\"");
  }
  if (options.json) {
    printJson(jsonFromValue(value));
  } else {
    std::printf("%s\n", tableText(value).c_str());
  }
}

void setCommand(const GlobalOptions &options, const PropertyArguments &arguments) {
  refuseSecretKey(arguments.key,
                  "set it with `tarnwick password set` or `tarnwick secret set`, which keep it in "
                  "the Coffer");
  auto value = parseValue(arguments.value);
  auto prefs = openStore(options);
  Transaction transaction(prefs.get(), Transaction::Writes::preferences);
  auto service = findService(prefs.get(), arguments.service);
  if (!writeProperty(service.get(), arguments, value.get())) {
    throw Failure(Exit::failure, "cannot set \"" + arguments.key + "\" of \"" +
                                     serviceName(service.get()) +
                                     "\": " + ZNErrorString(ZNError()));
  }
  transaction.commit();
  if (!options.json) printEngineLine();
}

void selectCommand(const GlobalOptions &options, const std::string &serviceArgument) {
  auto prefs = openStore(options);
  Transaction transaction(prefs.get(), Transaction::Writes::preferences);
  auto service = findService(prefs.get(), serviceArgument);
  if (!JXVPNSetSelectedService(service.get(), prefs.get(), true)) {
    throw Failure(Exit::failure, "cannot select \"" + serviceName(service.get()) +
                                     "\": " + ZNErrorString(ZNError()));
  }
  transaction.commit();
  if (!options.json) {
    std::printf("Selected \"%s\": %s\n", serviceName(service.get()).c_str(),
                serviceID(service.get()).c_str());
    printEngineLine();
  }
}

}  // namespace tarnwick
