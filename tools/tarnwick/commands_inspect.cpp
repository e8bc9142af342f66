// list, on-demand, show and dump: reading the store, changing nothing.
#include <cstdio>

#include "commands.hpp"
#include "describe.hpp"
#include "live_status.hpp"
#include "output.hpp"

namespace tarnwick {
namespace {

// Each service's summary with its live connection's status.
Json servicesWithStatus(ZNPreferencesRef prefs,
                        const std::vector<Ref<ZNNetworkServiceRef>> &services) {
  Json json = listServices(prefs, services);
  auto words = liveStatusWords(services);
  for (auto &service : json) service["status"] = words[service["id"].get<std::string>()];
  return json;
}

void printServices(const GlobalOptions &options, const Json &services) {
  if (options.json) {
    printJson(services);
    return;
  }
  if (services.empty()) {
    std::printf("No VPN services.\n");
    return;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto &service : services) {
    rows.push_back({service["name"], service["type"], service["id"],
                    service["selected"].get<bool>() ? "yes" : "no",
                    service["onDemand"].get<bool>() ? "yes" : "no", service["status"]});
  }
  printTable({"NAME", "TYPE", "IDENTIFIER", "SELECTED", "ON-DEMAND", "STATUS"}, rows);
}

// A layer's or protocol's configuration under a heading; "(none)" when it
// has none, "(empty)" when it is empty.
void printConfiguration(const std::string &heading, const Json &configuration, size_t indent) {
  std::string pad(indent, ' ');
  if (configuration.is_null() || configuration.empty()) {
    std::printf("%s%s  %s\n", pad.c_str(), heading.c_str(),
                configuration.is_null() ? "(none)" : "(empty)");
    return;
  }
  std::printf("%s%s\n", pad.c_str(), heading.c_str());
  printFields(configuration, indent + 2);
}

void printService(const Json &service) {
  Json header = {
      {"Name", service["name"]},
      {"Identifier", service["id"]},
      {"Type", service.contains("vendorType") ? service["type"].get<std::string>() + " (" +
                                                    service["vendorType"].get<std::string>() + ")"
                                              : service["type"].get<std::string>()},
      {"Enabled", service["enabled"].get<bool>() ? "yes" : "no"},
      {"Selected in", service["selectedIn"].empty() ? "-" : tableText(service["selectedIn"])},
      {"Status", service["status"]}};
  printFields(header);
  for (const auto &layer : service["layers"]) {
    printConfiguration("Layer " + layer["type"].get<std::string>(), layer["configuration"], 0);
    for (const auto &[type, configuration] : layer["extended"].items()) {
      printConfiguration("Extended configuration " + type, configuration, 2);
    }
  }
  for (const auto &[type, configuration] : service["protocols"].items()) {
    printConfiguration("Protocol " + type, configuration, 0);
  }
  const Json &secrets = service["secrets"];
  printFields({{"Account password", secrets["accountPassword"]},
               {"Shared secret", secrets["sharedSecret"]},
               {"Proxy password", secrets["proxyPassword"]},
               {"Certificate", secrets["certificate"]}});
}

}  // namespace

void listCommand(const GlobalOptions &options) {
  auto prefs = openStore(options);
  printServices(options, servicesWithStatus(prefs.get(), vpnServices(prefs.get())));
}

void onDemandCommand(const GlobalOptions &options) {
  auto prefs = openStore(options);
  auto onDemand = Ref<PVArrayRef>::adopt(JXVPNServiceCopyOnDemandSupported(prefs.get()));
  std::vector<Ref<ZNNetworkServiceRef>> services;
  for (PVIndex i = 0; i < PVArrayGetCount(onDemand.get()); ++i) {
    services.push_back(
        Ref<ZNNetworkServiceRef>::retain(elementAt<ZNNetworkServiceRef>(onDemand.get(), i)));
  }
  printServices(options, servicesWithStatus(prefs.get(), services));
}

void showCommand(const GlobalOptions &options, const std::string &serviceArgument) {
  auto prefs = openStore(options);
  auto service = findService(prefs.get(), serviceArgument);
  Json json = describeService(prefs.get(), service.get());
  json["status"] = liveStatusWords({service})[serviceID(service.get())];
  if (options.json) {
    printJson(json);
  } else {
    printService(json);
  }
}

void dumpCommand(const GlobalOptions &options) {
  // A fresh session is exactly the committed store.
  auto prefs = openStore(options);
  printJson(describeStore(prefs.get()));
}

}  // namespace tarnwick
