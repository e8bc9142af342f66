// The commands, one function each, grouped in files by what they do:
// install and remove; list, show, on-demand and dump; get, set, unset and
// select; enable, disable and rename; passwords and shared secrets; export;
// apply and status; connect and disconnect; the secret agent. Each fails by
// throwing Failure.
#pragma once

#include <string>
#include <vector>

#include "lifecycle.hpp"

namespace tarnwick {

struct GlobalOptions {
  std::string store;  // empty: the embedded default store
  bool json = false;
  double waitSeconds = -1;  // how long to wait for the lock; < 0: as long as it takes
  bool noWait = false;      // the same as a wait of 0
};

// The chosen store, opened. Only a change that can succeed on an empty
// store (install, apply) makes a missing store's directory; for the others
// a missing store is an error.
enum class Access { existing, change };
Ref<ZNPreferencesRef> openStore(const GlobalOptions &options, Access access);

struct InstallArguments {
  std::vector<std::string> payloads;  // "-" is standard input
  bool check = false;                 // validate only
  bool allowClearSecrets = false;
};
void installCommand(const GlobalOptions &options, const InstallArguments &arguments);
void removeCommand(const GlobalOptions &options, const RemovalTarget &target);

void listCommand(const GlobalOptions &options);
void onDemandCommand(const GlobalOptions &options);
void showCommand(const GlobalOptions &options, const ServiceArgument &service);
void dumpCommand(const GlobalOptions &options);

struct PropertyArguments {
  ServiceArgument service;
  std::string key;
  std::string value;
  std::string configurationType;  // --type: that configuration, whatever the key
  std::string protocolType;       // --protocol: that protocol's configuration
  bool force = false;             // an unknown key or configuration type all the same
};
void getCommand(const GlobalOptions &options, const PropertyArguments &arguments);
void setCommand(const GlobalOptions &options, const PropertyArguments &arguments);
void unsetCommand(const GlobalOptions &options, const PropertyArguments &arguments);
void selectCommand(const GlobalOptions &options, const ServiceArgument &service);

void enableCommand(const GlobalOptions &options, const ServiceArgument &service, bool enabled);
void renameCommand(const GlobalOptions &options, const ServiceArgument &service,
                   const std::string &newName);

struct SecretArguments {
  ServiceArgument service;
  bool proxy = false;      // password set: the proxy password
  bool encrypted = false;  // secret export/import: the encrypted encoding
  bool force = false;      // secret set/import on a service that uses no shared secret
};
void passwordSetCommand(const GlobalOptions &options, const SecretArguments &arguments);
void secretSetCommand(const GlobalOptions &options, const SecretArguments &arguments);
void secretExportCommand(const GlobalOptions &options, const SecretArguments &arguments);
void secretImportCommand(const GlobalOptions &options, const SecretArguments &arguments);

struct ExportArguments {
  ServiceArgument service;
  std::string outputPath;  // empty: standard output
  bool withSecret = false;
};
void exportCommand(const GlobalOptions &options, const ExportArguments &arguments);

void applyCommand(const GlobalOptions &options);
void statusCommand(const GlobalOptions &options);

// With `repair`, puts right what it finds.
void checkCommand(const GlobalOptions &options, bool repair);

struct ConnectionArguments {
  ServiceArgument service;
  double timeoutSeconds = 60;  // for the outcome
};
void connectCommand(const GlobalOptions &options, const ConnectionArguments &arguments);
void disconnectCommand(const GlobalOptions &options, const ConnectionArguments &arguments);
void agentCommand(const GlobalOptions &options);

}  // namespace tarnwick
