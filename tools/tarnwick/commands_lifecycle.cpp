// install and remove.
#include <cstdio>

#include "commands.hpp"
#include "engine_report.hpp"
#include "output.hpp"

namespace tarnwick {
namespace {

Json summaryJson(const ServiceSummary &service) {
  Json json = {{"id", service.id}, {"name", service.name}, {"type", service.type}};
  if (!service.vendorType.empty()) json["vendorType"] = service.vendorType;
  return json;
}

std::string joined(const std::vector<std::string> &items) {
  std::string text;
  for (const auto &item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

}  // namespace

Ref<ZNPreferencesRef> openStore(const GlobalOptions &options) {
  chooseStore(options.store);
  return openPreferences(options.store);
}

void installCommand(const GlobalOptions &options, const std::string &payloadPath) {
  // Read and checked before the store is touched.
  PayloadFile payload = readPayloadFile(payloadPath);
  checkInstallable(payload);
  auto prefs = openStore(options);
  Installed installed = installPayload(prefs.get(), payload);
  if (options.json) {
    Json replaced = Json::array();
    for (const auto &service : installed.replaced) replaced.push_back(summaryJson(service));
    Json json = summaryJson(installed.service);
    json["replaced"] = replaced;
    json["unusedKeys"] = installed.unusedKeys;
    json["engine"] = takeEngineReport();
    printJson(json);
    return;
  }
  for (const auto &old : installed.replaced) {
    std::printf("Replaced \"%s\" (%s)\n", old.name.c_str(), old.id.c_str());
  }
  std::printf("Installed \"%s\" (%s): %s\n", installed.service.name.c_str(),
              installed.service.typeText().c_str(), installed.service.id.c_str());
  if (!installed.unusedKeys.empty()) {
    std::printf("Payload keys not used: %s\n", joined(installed.unusedKeys).c_str());
  }
  printEngineLine();
}

void removeCommand(const GlobalOptions &options, const RemovalTarget &target) {
  auto prefs = openStore(options);
  auto removed = removeServices(prefs.get(), target);
  if (options.json) {
    Json json = Json::array();
    for (const auto &service : removed) json.push_back(summaryJson(service));
    printJson(json);
    return;
  }
  for (const auto &service : removed) {
    std::printf("Removed \"%s\" (%s): %s\n", service.name.c_str(), service.typeText().c_str(),
                service.id.c_str());
  }
  printEngineLine();
}

}  // namespace tarnwick
