// apply and status: the VPN engine and the store.
#include "commands.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "output.hpp"
#include "tarnwick/platform/engine.h"

namespace tarnwick {

void applyCommand(const GlobalOptions &options) {
  auto prefs = openStore(options, Access::change);
  lockPreferences(prefs.get());
  bool applied = ZNEngineApply(prefs.get());
  std::string error = applied ? "" : ZNErrorString(ZNError());
  JXVPNPreferencesUnlock(prefs.get());
  if (!applied) throw Failure(Exit::failure, "cannot apply the store: " + error);
  Json report = takeEngineReport();
  if (options.json) {
    printJson(report);
  } else {
    emit(engineLine(report) + "\n");
    for (const auto &service : report["services"]) {
      if (service.contains("reason")) {
        emit("  \"" + shown(service.value("name", "")) + "\": " + shown(stateText(service)) + "\n");
      }
    }
  }
  if (engineFellShort(report)) {
    throw Failure(Exit::engine, "the VPN engine did not take every change");
  }
}

void statusCommand(const GlobalOptions &options) {
  auto prefs = openStore(options, Access::existing);
  auto status = Ref<PVDictionaryRef>::adopt(ZNEngineCopyStatus(prefs.get()));
  if (!status) {
    throw Failure(Exit::storeUnavailable,
                  std::string("cannot read the store: ") + ZNErrorString(ZNError()));
  }
  Json json = engineJson(status.get());
  json["store"] = ZNPreferencesGetStoreDirectory(prefs.get());
  if (options.json) {
    printJson(json);
    return;
  }
  Json fields = {{"Store", json["store"]},
                 {"Generation", std::to_string(json.value("generation", 0)) + ", applied " +
                                    std::to_string(json.value("appliedGeneration", 0))},
                 {"Engine", json["engine"]}};
  if (json.contains("failure")) fields["Failure"] = json["failure"];
  if (size_t leftover = json.value("leftover", size_t(0))) {
    fields["Leftover"] = std::to_string(leftover) + " connections, deleted by the next apply";
  }
  printFields(fields);
  std::vector<std::vector<std::string>> rows;
  for (const auto &service : json["services"]) {
    std::string type = service.value("type", "");
    if (service.contains("vendorType"))
      type += " (" + service["vendorType"].get<std::string>() + ")";
    rows.push_back(
        {service.value("name", ""), type, service.value("plugin", "-"), stateText(service)});
  }
  emit("\n");
  printTable({"NAME", "TYPE", "PLUGIN", "STATE"}, rows);
}

}  // namespace tarnwick
