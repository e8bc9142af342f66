#include "engine_report.hpp"

#include "output.hpp"
#include "tarnwick/platform/engine.h"

namespace tarnwick {
namespace {

size_t number(const Json &report, const char *key) {
  return report.contains(key) ? report[key].get<size_t>() : 0;
}

}  // namespace

Json takeEngineReport() {
  auto report = pv::Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
  return report ? jsonFromValue(report.get()) : Json();
}

std::string engineLine(const Json &report) {
  if (report.is_null()) return "Engine: nothing applied";
  std::string engine = report.value("Engine", "none");
  std::string line = "Engine " + engine + ": ";
  if (engine == "none") {
    line += "no VPN engine; the store alone holds the change";
  } else {
    line += std::to_string(number(report, "Added")) + " added, " +
            std::to_string(number(report, "Updated")) + " updated, " +
            std::to_string(number(report, "Deleted")) + " deleted, " +
            std::to_string(number(report, "Unchanged")) + " unchanged";
    if (size_t failed = number(report, "Failed")) {
      line += ", " + std::to_string(failed) + " refused";
    }
    if (size_t inexpressible = number(report, "CannotExpress")) {
      line += "; " + std::to_string(inexpressible) + " cannot be expressed";
    }
  }
  if (report.contains("Failure")) line += "; " + report["Failure"].get<std::string>();
  return line;
}

void printEngineLine() { emit(shown(engineLine(takeEngineReport())) + "\n"); }

bool engineFellShort(const Json &report) {
  return !report.is_null() && report.value("Engine", "none") == "networkmanager" &&
         (report.contains("Failure") || number(report, "Failed") > 0);
}

std::string stateText(const Json &service) {
  std::string state = service.value("State", "");
  for (char &c : state) c = c == '-' ? ' ' : c;
  if (service.contains("Reason")) state += ": " + service["Reason"].get<std::string>();
  return state;
}

}  // namespace tarnwick
