// install and remove, and how every command opens the store.
#include "commands.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "output.hpp"

namespace tarnwick {
namespace {

std::string joined(const std::vector<std::string> &items) {
  std::string text;
  for (const auto &item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

// The name a payload's service will have.
std::string payloadServiceName(PVDictionaryRef payload) {
  for (const char *key : {"UserDefinedName", "PayloadDisplayName", "VPNType"}) {
    if (PVTypeRef name = valueFor(payload, key)) return textOf(name);
  }
  return "";
}

// Reads and checks every payload before the store is touched; secrets that
// would stay in the preferences in clear refuse a payload unless allowed.
std::vector<CheckedPayload> checkedPayloads(const InstallArguments &arguments) {
  std::vector<CheckedPayload> payloads;
  for (const std::string &path : arguments.payloads) {
    PayloadFile file = readPayloadFile(path);
    PayloadFindings findings = checkPayload(file);
    if (!findings.clearSecrets.empty() && !arguments.allowClearSecrets) {
      throw Failure(Exit::malformedPayload,
                    file.name + ": the preferences would keep these secrets in clear: " +
                        joined(findings.clearSecrets) +
                        " (--allow-clear-secrets installs them all the same)");
    }
    for (const std::string &secret : findings.clearSecrets) {
      findings.warnings.push_back("\"" + secret + "\" is kept in the preferences in clear");
    }
    payloads.push_back({std::move(file), std::move(findings)});
  }
  return payloads;
}

void printFindings(const std::vector<std::string> &unusedKeys,
                   const std::vector<std::string> &droppedSecrets,
                   const std::vector<std::string> &warnings) {
  if (!unusedKeys.empty()) emit("Payload keys not used: " + shown(joined(unusedKeys)) + "\n");
  if (!droppedSecrets.empty()) {
    emit("Secrets not stored (this configuration does not use them): " +
         shown(joined(droppedSecrets)) + "\n");
  }
  for (const std::string &warning : warnings) note("warning: " + warning);
}

void checkOnly(const GlobalOptions &options, const std::vector<CheckedPayload> &payloads) {
  Json checked = Json::array();
  for (const CheckedPayload &payload : payloads) {
    PVDictionaryRef dictionary = payload.file.dictionary.get();
    std::string vendor = textOf(valueFor(dictionary, "VPNSubType"));
    Json json = {{"file", payload.file.name},
                 {"name", payloadServiceName(dictionary)},
                 {"type", textOf(valueFor(dictionary, "VPNType"))}};
    if (!vendor.empty()) json["vendorType"] = vendor;
    json.update(Json{{"unusedKeys", payload.findings.unusedKeys},
                     {"warnings", payload.findings.warnings}});
    checked.push_back(json);
    if (options.json) continue;
    emit(shown(payload.file.name) + ": ready to install \"" + shown(json["name"]) + "\" (" +
         shown(json["type"].get<std::string>() + (vendor.empty() ? "" : " (" + vendor + ")")) +
         ")\n");
    printFindings(payload.findings.unusedKeys, {}, payload.findings.warnings);
  }
  if (options.json) printJson({{"checked", checked}});
}

}  // namespace

Ref<ZNPreferencesRef> openStore(const GlobalOptions &options, Access access) {
  chooseStore(options.store);
  setLockWait(options.noWait ? 0 : options.waitSeconds);
  if (access == Access::change) makeStoreDirectory();
  return openPreferences();
}

void installCommand(const GlobalOptions &options, const InstallArguments &arguments) {
  std::vector<CheckedPayload> payloads = checkedPayloads(arguments);
  if (arguments.check) {
    checkOnly(options, payloads);
    return;
  }
  auto prefs = openStore(options, Access::change);
  std::vector<Installed> installed = installPayloads(prefs.get(), payloads);
  if (options.json) {
    Json list = Json::array();
    for (const Installed &one : installed) {
      Json replaced = Json::array();
      for (const auto &service : one.replaced) replaced.push_back(summaryJson(service));
      Json json = {{"file", one.file}};
      json.update(summaryJson(one.service));
      json.update(Json{{"replaced", replaced},
                       {"unusedKeys", one.unusedKeys},
                       {"droppedSecrets", one.droppedSecrets},
                       {"warnings", one.warnings}});
      list.push_back(json);
    }
    printJson({{"installed", list}, {"engine", takeEngineReport()}});
    return;
  }
  for (const Installed &one : installed) {
    for (const auto &old : one.replaced) {
      emit("Replaced \"" + shown(old.name) + "\" (" + old.id + ")\n");
    }
    emit("Installed \"" + shown(one.service.name) + "\" (" + shown(one.service.typeText()) +
         "): " + one.service.id + "\n");
    printFindings(one.unusedKeys, one.droppedSecrets, one.warnings);
  }
  printEngineLine();
}

void removeCommand(const GlobalOptions &options, const RemovalTarget &target) {
  auto prefs = openStore(options, Access::existing);
  auto removed = removeServices(prefs.get(), target);
  if (options.json) {
    Json list = Json::array();
    for (const auto &service : removed) list.push_back(summaryJson(service));
    printJson({{"removed", list}, {"engine", takeEngineReport()}});
    return;
  }
  for (const auto &service : removed) {
    emit("Removed \"" + shown(service.name) + "\" (" + shown(service.typeText()) +
         "): " + service.id + "\n");
  }
  printEngineLine();
}

}  // namespace tarnwick
