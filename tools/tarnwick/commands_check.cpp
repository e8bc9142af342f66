// check: what the preferences and the Coffer disagree on, and the files
// killed sessions left in the store; with --repair, put right.
#include <algorithm>
#include <cstdio>

#include "check.hpp"
#include "commands.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "output.hpp"

namespace tarnwick {
namespace {

void printFindings(const std::vector<Finding> &findings, bool repair) {
  for (const Finding &finding : findings) {
    std::printf("%s%s\n", finding.text.c_str(), finding.repaired ? " (repaired)" : "");
    if (finding.repaired && !finding.afterRepair.empty()) {
      std::printf("  now %s\n", finding.afterRepair.c_str());
    }
  }
  if (findings.empty()) std::printf("The preferences and the Coffer agree; no leftover files.\n");
  if (repair && std::any_of(findings.begin(), findings.end(),
                            [](const Finding &finding) { return finding.changesSession; })) {
    printEngineLine();
  }
}

Json findingsJson(const std::vector<Finding> &findings, size_t remaining) {
  Json list = Json::array();
  for (const Finding &finding : findings) {
    Json json = finding.json;
    json["repaired"] = finding.repaired;
    if (finding.repaired && !finding.afterRepair.empty()) json["then"] = finding.afterRepair;
    list.push_back(json);
  }
  Json json = {{"clean", remaining == 0}, {"findings", list}};
  // A repair that changed the services committed and applied them.
  if (Json engine = takeEngineReport(); !engine.is_null()) json["engine"] = engine;
  return json;
}

}  // namespace

void checkCommand(const GlobalOptions &options, bool repair) {
  auto prefs = openStore(options, Access::existing);
  // Under the lock no installation is half-way: its secrets are in the
  // Coffer only once its service is committed.
  lockPreferences(prefs.get());
  struct Unlock {
    ZNPreferencesRef prefs;
    ~Unlock() { (void)JXVPNPreferencesUnlock(prefs); }
  } unlock{prefs.get()};
  std::vector<Finding> findings = findDisagreements(prefs.get());
  if (repair) repairDisagreements(prefs.get(), findings);
  const size_t remaining = static_cast<size_t>(std::count_if(
      findings.begin(), findings.end(), [](const Finding &finding) { return !finding.repaired; }));
  if (options.json) {
    printJson(findingsJson(findings, remaining));
  } else {
    printFindings(findings, repair);
  }
  if (remaining == 0) return;
  const bool one = remaining == 1;
  throw Failure(Exit::disagreement,
                std::to_string(remaining) + (one ? " problem" : " problems") +
                    (repair ? " left"
                            : std::string(" found; `tarnwick check --repair` puts ") +
                                  (one ? "it" : "them") + " right"));
}

}  // namespace tarnwick
