// The commands, one function each, grouped in files by what they do:
// install and remove; list, show, on-demand and dump; get, set and select;
// passwords and shared secrets; export. Each fails by throwing Failure.
#pragma once

#include <string>

#include "lifecycle.hpp"

namespace tarnwick {

struct GlobalOptions {
  std::string store;  // empty: the embedded default store
  bool json = false;
};

// The chosen store, opened.
Ref<ZNPreferencesRef> openStore(const GlobalOptions &options);

void installCommand(const GlobalOptions &options, const std::string &payloadPath);
void removeCommand(const GlobalOptions &options, const RemovalTarget &target);

void listCommand(const GlobalOptions &options);
void onDemandCommand(const GlobalOptions &options);
void showCommand(const GlobalOptions &options, const std::string &service);
void dumpCommand(const GlobalOptions &options);

struct PropertyArguments {
  std::string service;
  std::string key;
  std::string value;
  std::string configurationType;  // --type: that configuration, whatever the key
  std::string protocolType;       // --protocol: that protocol's configuration
};
void getCommand(const GlobalOptions &options, const PropertyArguments &arguments);
void setCommand(const GlobalOptions &options, const PropertyArguments &arguments);
void selectCommand(const GlobalOptions &options, const std::string &service);

void passwordSetCommand(const GlobalOptions &options, const std::string &service, bool proxy);
void secretSetCommand(const GlobalOptions &options, const std::string &service);
void secretExportCommand(const GlobalOptions &options, const std::string &service, bool encrypted);
void secretImportCommand(const GlobalOptions &options, const std::string &service, bool encrypted);

struct ExportArguments {
  std::string service;
  std::string outputPath;  // empty: standard output
  bool withSecret = false;
};
void exportCommand(const GlobalOptions &options, const ExportArguments &arguments);

void applyCommand(const GlobalOptions &options);
void statusCommand(const GlobalOptions &options);

// With `repair`, puts right what it finds.
void checkCommand(const GlobalOptions &options, bool repair);

}  // namespace tarnwick
