#include "engine_report.hpp"

#include <cctype>
#include <functional>

#include "output.hpp"
#include "tarnwick/platform/engine.h"

namespace tarnwick {
namespace {

size_t number(const Json &report, const char *key) {
  return report.contains(key) ? report[key].get<size_t>() : 0;
}

}  // namespace

Json engineJson(PVDictionaryRef report) {
  if (!report) return Json();
  // The engine's keys in the tool's words: "ServiceID" is "id", "UUID"
  // "uuid", "CannotExpress" "cannotExpress".
  std::function<Json(const Json &)> renamed = [&](const Json &node) -> Json {
    if (node.is_array()) {
      Json list = Json::array();
      for (const auto &item : node) list.push_back(renamed(item));
      return list;
    }
    if (!node.is_object() || isDataJson(node)) return node;
    Json object = Json::object();
    for (const auto &[key, value] : node.items()) {
      std::string name = key == "ServiceID" ? "id" : key == "UUID" ? "uuid" : key;
      name[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
      object[name] = renamed(value);
    }
    return object;
  };
  return renamed(jsonFromValue(report));
}

Json takeEngineReport() {
  auto report = pv::Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
  return engineJson(report.get());
}

std::string engineLine(const Json &report) {
  if (report.is_null()) return "Engine: nothing applied";
  std::string engine = report.value("engine", "none");
  std::string line = "Engine " + engine + ": ";
  if (engine == "none") {
    line += "no VPN engine; the store alone holds the change";
  } else {
    line += std::to_string(number(report, "added")) + " added, " +
            std::to_string(number(report, "updated")) + " updated, " +
            std::to_string(number(report, "deleted")) + " deleted, " +
            std::to_string(number(report, "unchanged")) + " unchanged";
    if (size_t failed = number(report, "failed")) {
      line += ", " + std::to_string(failed) + " refused";
    }
    if (size_t inexpressible = number(report, "cannotExpress")) {
      line += "; " + std::to_string(inexpressible) + " cannot be expressed";
    }
  }
  if (report.contains("failure")) line += "; " + report["failure"].get<std::string>();
  return line;
}

void printEngineLine() {
  auto report = pv::Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
  Json counts;
  if (report) {
    // The line needs the counts alone: the lists, one entry per service of
    // a large store, are left out before anything is converted.
    auto top = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(report.get()));
    for (const char *list : {"Services", "DeletedServices"}) {
      auto key = pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString(list));
      PVDictionaryRemoveValue(top.get(), key.get());
    }
    counts = engineJson(top.get());
  }
  emit(shown(engineLine(counts)) + "\n");
}

bool engineFellShort(const Json &report) {
  return !report.is_null() && report.value("engine", "none") == "networkmanager" &&
         (report.contains("failure") || number(report, "failed") > 0);
}

std::string stateText(const Json &service) {
  std::string state = service.value("state", "");
  for (char &c : state) c = c == '-' ? ' ' : c;
  if (service.contains("reason")) state += ": " + service["reason"].get<std::string>();
  return state;
}

}  // namespace tarnwick
