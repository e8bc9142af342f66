// enable, disable and rename: the service itself.
#include "commands.hpp"
#include "credentials.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "output.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

void report(const GlobalOptions &options, ZNNetworkServiceRef service, const std::string &line) {
  if (options.json) {
    printJson({{"service", summaryJson(summarize(service))},
               {"enabled", ZNNetworkServiceGetEnabled(service) != 0},
               {"engine", takeEngineReport()}});
    return;
  }
  emit(line + "\n");
  printEngineLine();
}

}  // namespace

void enableCommand(const GlobalOptions &options, const ServiceArgument &serviceArgument,
                   bool enabled) {
  auto prefs = openStore(options, Access::existing);
  Transaction transaction(prefs.get(), Transaction::Writes::preferences);
  auto service = findService(prefs.get(), serviceArgument);
  if (!ZNNetworkServiceSetEnabled(service.get(), enabled)) {
    throw Failure(Exit::failure, std::string("cannot ") + (enabled ? "enable" : "disable") +
                                     " \"" + serviceName(service.get()) +
                                     "\": " + ZNErrorString(ZNError()));
  }
  transaction.commit();
  report(options, service.get(),
         std::string(enabled ? "Enabled" : "Disabled") + " \"" +
             shown(serviceName(service.get())) + "\": " + serviceID(service.get()));
}

void renameCommand(const GlobalOptions &options, const ServiceArgument &serviceArgument,
                   const std::string &newName) {
  if (newName.empty()) throw Failure(Exit::usage, "a service's name cannot be empty");
  auto name = makeString(newName);
  auto prefs = openStore(options, Access::existing);
  Transaction transaction(prefs.get(), Transaction::Writes::secrets);
  auto service = findService(prefs.get(), serviceArgument);
  std::string oldName = serviceName(service.get());
  // The proxy password's Coffer item is named after the service: it moves
  // to the new name, and the old item goes unless other services of the
  // old name share it.
  auto proxy = copySecret(service.get(), Secret::proxyPassword);
  if (proxy && servicesNamed(prefs.get(), oldName).size() == 1) {
    transaction.setSecret(service, Secret::proxyPassword, nullptr);
  }
  // Undone before the store is re-read, so the old name holds again for the
  // undo of the removal above.
  transaction.onUndo([service, old = makeString(oldName)] {
    (void)ZNNetworkServiceSetName(service.get(), old.get());
  });
  if (!ZNNetworkServiceSetName(service.get(), name.get())) {
    throw Failure(Exit::failure, "cannot rename \"" + oldName + "\": " + ZNErrorString(ZNError()));
  }
  if (proxy) {
    if (servicesNamed(prefs.get(), newName).size() > 1) {
      note("warning: the proxy password is kept by service name; the other services named \"" +
           newName + "\" now share this one");
    }
    transaction.setSecret(service, Secret::proxyPassword, proxy.get());
  }
  transaction.commit();
  report(options, service.get(),
         "Renamed \"" + shown(oldName) + "\" to \"" + shown(newName) + "\": " +
             serviceID(service.get()));
}

}  // namespace tarnwick
