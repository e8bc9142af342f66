// list, on-demand, show and dump: reading the store, changing nothing.
#include "commands.hpp"
#include "describe.hpp"
#include "output.hpp"

namespace tarnwick {
namespace {

std::string yesNo(const Json &flag) { return flag.get<bool>() ? "yes" : "no"; }

void printServices(const GlobalOptions &options, const Json &services) {
  if (options.json) {
    printJson(services);
    return;
  }
  if (services.empty()) {
    emit("No VPN services.\n");
    return;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto &service : services) {
    std::string type = service["type"];
    if (service.contains("vendorType")) type += " (" + service["vendorType"].get<std::string>() + ")";
    rows.push_back({service["name"], type, service["id"], yesNo(service["selected"]),
                    yesNo(service["onDemand"])});
  }
  printTable({"NAME", "TYPE", "IDENTIFIER", "SELECTED", "ON-DEMAND"}, rows);
}

// A layer's or protocol's configuration under a heading; "(none)" when it
// has none, "(empty)" when it is empty.
void printConfiguration(const std::string &heading, const Json &configuration, size_t indent) {
  std::string pad(indent, ' ');
  if (configuration.is_null() || configuration.empty()) {
    emit(pad + shown(heading) + "  " + (configuration.is_null() ? "(none)" : "(empty)") + "\n");
    return;
  }
  emit(pad + shown(heading) + "\n");
  printFields(configuration, indent + 2);
}

void printService(const Json &service) {
  std::string selectedIn;
  for (const auto &set : service["selectedIn"]) {
    std::string name = set["name"];
    selectedIn += (selectedIn.empty() ? "" : ", ") + (name.empty() ? set["id"].get<std::string>() : name);
  }
  std::string type = service["type"];
  if (service.contains("vendorType")) type += " (" + service["vendorType"].get<std::string>() + ")";
  printFields({{"Name", service["name"]},
               {"Identifier", service["id"]},
               {"Type", type},
               {"Enabled", yesNo(service["enabled"])},
               {"On demand", yesNo(service["onDemand"])},
               {"Selected in", selectedIn.empty() ? "-" : selectedIn}});
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
  auto prefs = openStore(options, Access::existing);
  printServices(options, listServices(prefs.get(), vpnServices(prefs.get())));
}

void onDemandCommand(const GlobalOptions &options) {
  auto prefs = openStore(options, Access::existing);
  auto onDemand = Ref<PVArrayRef>::adopt(JXVPNServiceCopyOnDemandSupported(prefs.get()));
  std::vector<Ref<ZNNetworkServiceRef>> services;
  for (PVIndex i = 0; i < PVArrayGetCount(onDemand.get()); ++i) {
    services.push_back(
        Ref<ZNNetworkServiceRef>::retain(elementAt<ZNNetworkServiceRef>(onDemand.get(), i)));
  }
  printServices(options, listServices(prefs.get(), services));
}

void showCommand(const GlobalOptions &options, const ServiceArgument &serviceArgument) {
  auto prefs = openStore(options, Access::existing);
  auto service = findService(prefs.get(), serviceArgument);
  Json json = describeService(prefs.get(), service.get());
  if (options.json) {
    printJson(json);
  } else {
    printService(json);
  }
}

void dumpCommand(const GlobalOptions &options) {
  // A fresh session is exactly the committed store; JSON either way.
  auto prefs = openStore(options, Access::existing);
  printJson(describeStore(prefs.get()));
}

}  // namespace tarnwick
