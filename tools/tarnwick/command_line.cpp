#include "command_line.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <new>

#include "commands.hpp"
#include "failure.hpp"
#include "output.hpp"

namespace tarnwick {
namespace {

constexpr const char *kExitCodes =
    "Exit codes: 0 success, 1 any other failure, 2 usage, 3 malformed payload,\n"
    "4 not found, 5 store cannot be opened, 6 lock, 7 credential store,\n"
    "8 the VPN engine did not take every change (apply), 9 the preferences and\n"
    "the Coffer disagree (check), 10 no VPN engine or it does not answer,\n"
    "11 the connection failed (NetworkManager's reason is given), 12 no outcome\n"
    "within --timeout (connect, disconnect).\n"
    "See tarnwick(1) and tarnwick-payload(5).";

constexpr const char *kServiceHelp = "a service identifier, or a service name held by one service";

struct Arguments {
  GlobalOptions global;
  InstallArguments install;
  RemovalTarget removal;
  ServiceArgument service;
  PropertyArguments property;
  SecretArguments secret;
  ExportArguments exporting;
  ConnectionArguments connection;
  std::string newName;
  std::vector<std::string> helpTopic;
  bool repair = false;
};

// Adds a command whose callback runs `run` once parsing has succeeded.
CLI::App *command(CLI::App &parent, const std::string &name, const std::string &help,
                  std::function<void()> run) {
  CLI::App *sub = parent.add_subcommand(name, help);
  sub->callback(std::move(run));
  return sub;
}

// SERVICE, or --id ID / --name NAME to say which it is.
void addService(CLI::App *sub, ServiceArgument &service, const std::string &positional = "SERVICE",
                const std::string &help = kServiceHelp) {
  auto *any = sub->add_option(positional, service.any, help);
  auto *id = sub->add_option("--id", service.id, "the service with this identifier");
  auto *name = sub->add_option("--name", service.name, "the one service of this name");
  any->excludes(id)->excludes(name);
  id->excludes(name);
}

// `connect` and `disconnect`: a service, and how long to wait.
void addConnectionCommand(CLI::App &app, const std::string &name, const std::string &help,
                          Arguments &a, std::function<void()> run) {
  CLI::App *sub = command(app, name, help, std::move(run));
  addService(sub, a.connection.service);
  sub->add_option("--timeout", a.connection.timeoutSeconds, "wait at most SECONDS for the outcome")
      ->type_name("SECONDS")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
}

void addTypeOptions(CLI::App *sub, PropertyArguments &property) {
  auto *type = sub->add_option("--type", property.configurationType,
                               "use the configuration of this type (IPSec, PPP, VPN, EAP, L2TP, "
                               "a vendor type) whatever the key");
  sub->add_option("--protocol", property.protocolType,
                  "use this protocol's configuration (IPv4, DNS, Proxies, com.velmora.payload)")
      ->excludes(type);
}

// get, set and unset: SERVICE KEY, the type options, and set's VALUE.
CLI::App *addPropertyCommand(CLI::App &app, const std::string &name, const std::string &help,
                             PropertyArguments &property, std::function<void()> run) {
  auto *sub = command(app, name, help, std::move(run));
  addService(sub, property.service);
  sub->add_option("KEY", property.key, "the configuration key")->required();
  addTypeOptions(sub, property);
  return sub;
}

// Every command takes the global options too, and lists them in its help.
void addGlobalOptions(CLI::App *app, GlobalOptions &global) {
  app->add_option("--store", global.store,
                  "the store directory (default: $TARNWICK_STORE, else /var/lib/tarnwick for "
                  "root, else the user's state directory)");
  app->add_flag("--json", global.json, "print results as JSON");
  auto *wait = app->add_option("--wait", global.waitSeconds,
                               "wait at most SECONDS for another process's lock (default: as "
                               "long as it takes)");
  wait->type_name("SECONDS")->check(CLI::NonNegativeNumber);
  app->add_flag("--no-wait", global.noWait, "fail at once when another process holds the lock")
      ->excludes(wait);
  for (CLI::App *sub : app->get_subcommands({})) addGlobalOptions(sub, global);
}

void defineCommands(CLI::App &app, Arguments &a) {
  auto *install = command(app, "install",
                          "install payloads as VPN services (replacing the ones they installed "
                          "before), all or none",
                          [&] { installCommand(a.global, a.install); });
  install
      ->add_option("PAYLOAD", a.install.payloads,
                   "payload files (JSON, see tarnwick-payload(5)); - reads standard input")
      ->required();
  install->add_flag("--check", a.install.check,
                    "check the payloads and say what would be installed, changing nothing");
  install->add_flag("--allow-clear-secrets", a.install.allowClearSecrets,
                    "install secrets that would be kept in the preferences in clear");

  auto *remove = command(app, "remove", "remove VPN services with their secrets",
                         [&] { removeCommand(a.global, a.removal); });
  addService(remove, a.removal.service, "TARGET",
             "a service identifier or name, or else a payload file (its services)");
  remove->add_option("--file", a.removal.service.file, "the services this payload file installed")
      ->excludes("TARGET")
      ->excludes("--id")
      ->excludes("--name");
  remove->add_flag("--all", a.removal.all, "remove every service of that name");

  command(app, "list", "list the VPN services", [&] { listCommand(a.global); });
  command(app, "on-demand", "list the VPN services that connect on demand",
          [&] { onDemandCommand(a.global); });
  addService(command(app, "show", "show a service: layers, protocols, secrets as stored or absent",
                     [&] { showCommand(a.global, a.service); }),
             a.service);
  command(app, "dump", "print the committed store as JSON", [&] { dumpCommand(a.global); });

  addPropertyCommand(app, "get", "print one configuration property of a service", a.property,
                     [&] { getCommand(a.global, a.property); });
  auto *set = addPropertyCommand(app, "set", "set one configuration property of a service",
                                 a.property, [&] { setCommand(a.global, a.property); });
  set->add_option("VALUE", a.property.value,
                  "the value, converted to the key's type (JSON for lists, dictionaries and "
                  "unknown keys)")
      ->required();
  set->add_flag("--force", a.property.force,
                "set a key the library does not know, or in a configuration type it does not "
                "know");
  addPropertyCommand(app, "unset", "remove one configuration property of a service", a.property,
                     [&] { unsetCommand(a.global, a.property); });

  addService(command(app, "select", "make a service the selected VPN service of every set",
                     [&] { selectCommand(a.global, a.service); }),
             a.service);
  addService(command(app, "enable", "enable a service", [&] {
               enableCommand(a.global, a.service, true);
             }),
             a.service);
  addService(command(app, "disable", "disable a service", [&] {
               enableCommand(a.global, a.service, false);
             }),
             a.service);
  auto *rename = command(app, "rename", "give a service a new name",
                         [&] { renameCommand(a.global, a.service, a.newName); });
  addService(rename, a.service);
  rename->add_option("NEW_NAME", a.newName, "the new name")->required();

  auto *password = app.add_subcommand("password", "store a service's passwords in the Coffer");
  password->require_subcommand(1);
  auto *passwordSet =
      command(*password, "set",
              "store the account (or proxy) password, read from standard input or a prompt",
              [&] { passwordSetCommand(a.global, a.secret); });
  addService(passwordSet, a.secret.service);
  passwordSet->add_flag("--proxy", a.secret.proxy, "the HTTP proxy password");

  auto *secret = app.add_subcommand("secret", "a service's IPSec shared secret");
  secret->require_subcommand(1);
  const char *forceHelp =
      "store it even in a service that does not authenticate with a shared secret";
  auto *secretSet = command(*secret, "set",
                            "store the shared secret, read from standard input or a prompt",
                            [&] { secretSetCommand(a.global, a.secret); });
  addService(secretSet, a.secret.service);
  secretSet->add_flag("--force", a.secret.force, forceHelp);
  auto *secretExport =
      command(*secret, "export", "print the stored shared secret in its exported encoding (base64)",
              [&] { secretExportCommand(a.global, a.secret); });
  auto *secretImport = command(
      *secret, "import",
      "store a shared secret given in its exported encoding (base64, standard input)",
      [&] { secretImportCommand(a.global, a.secret); });
  for (CLI::App *sub : {secretExport, secretImport}) {
    addService(sub, a.secret.service);
    sub->add_flag("--encrypted", a.secret.encrypted, "the stored (obfuscated) encoding instead");
  }
  secretImport->add_flag("--force", a.secret.force, forceHelp);

  auto *exporting = command(app, "export", "print a service as a payload that install accepts",
                            [&] { exportCommand(a.global, a.exporting); });
  addService(exporting, a.exporting.service);
  exporting->add_option("-o,--output", a.exporting.outputPath,
                        "write to this file instead (replaced whole; owner-only when it holds the secret)");
  exporting->add_flag("--with-secret", a.exporting.withSecret,
                      "include the stored shared secret, in its exported encoding");

  command(app, "apply",
          "bring the VPN engine (NetworkManager) in line with the store, checking every "
          "connection",
          [&] { applyCommand(a.global); });
  command(app, "status", "the store's generations, the VPN engine, and each service's state in it",
          [&] { statusCommand(a.global); });
  command(app, "check",
          "find what the preferences and the Coffer disagree on, and files killed sessions left",
          [&] { checkCommand(a.global, a.repair); })
      ->add_flag("--repair", a.repair, "put right what it finds");

  addConnectionCommand(app, "connect",
                       "connect a service through the VPN engine, and wait for the outcome", a,
                       [&] { connectCommand(a.global, a.connection); });
  addConnectionCommand(app, "disconnect", "disconnect a service, and wait until it is down", a,
                       [&] { disconnectCommand(a.global, a.connection); });
  command(app, "agent",
          "serve the store's VPN secrets to NetworkManager from the Coffer, until stopped",
          [&] { agentCommand(a.global); });

  command(app, "help", "describe the tool, or a command", [&] {
    CLI::App *topic = &app;
    for (const std::string &word : a.helpTopic) {
      topic = topic->get_subcommand(word);  // checked before parsing
    }
    // From the formatter, named as --help names it: the app's own help
    // would show the help command's.
    std::string path = "tarnwick";
    for (const std::string &word : a.helpTopic) path += " " + word;
    std::string help = topic->get_formatter()->make_help(topic, path, CLI::AppFormatMode::Normal);
    emit(help);
  })->add_option("COMMAND", a.helpTopic, "the command (\"secret set\": both words)");
}

bool isOption(const std::string &word) { return word.size() > 1 && word[0] == '-'; }

// The option `word` names at this level or an enclosing one (the global
// options fall through), or null.
const CLI::Option *optionFor(const CLI::App *level, const std::string &word) {
  std::string name = word.substr(0, word.find('='));
  for (; level; level = level->get_parent()) {
    for (const CLI::Option *option : level->get_options()) {
      if (option->check_name(name)) return option;
    }
  }
  return nullptr;
}

const CLI::App *subcommandNamed(const CLI::App *level, const std::string &name) {
  for (const CLI::App *sub : level->get_subcommands({})) {
    if (sub->get_name() == name) return sub;
  }
  return nullptr;
}

std::string joined(const std::vector<std::string> &words) {
  std::string text;
  for (const auto &word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

// Names an unknown command as such, which the parser would report as a
// missing subcommand. `help COMMAND...` is checked the same way.
void checkCommandWords(CLI::App &app, const std::vector<std::string> &args) {
  const CLI::App *level = &app;
  std::vector<std::string> path;
  bool helpTopic = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &word = args[i];
    if (word == "--") break;
    if (isOption(word)) {
      if (word == "-h" || word == "--help" || word == "--version") return;
      const CLI::Option *option = optionFor(level, word);
      if (option && option->get_expected_max() > 0 && word.find('=') == std::string::npos) ++i;
      continue;
    }
    if (level->get_subcommands({}).empty()) {
      if (path == std::vector<std::string>{"help"}) {
        level = &app;
        path.clear();
        helpTopic = true;
      } else {
        return;  // the command's own arguments
      }
    }
    path.push_back(word);
    const CLI::App *sub = subcommandNamed(level, word);
    if (!sub) {
      throw Failure(Exit::usage, "unknown command \"" + joined(path) + "\" (see tarnwick " +
                                     joined({path.begin(), path.end() - 1}) +
                                     (path.size() > 1 ? " " : "") + "--help)");
    }
    level = sub;
  }
  if (!helpTopic && !level->get_subcommands({}).empty()) {
    std::string where = joined(path);
    throw Failure(Exit::usage, "a command is required (see tarnwick " + where +
                                   (where.empty() ? "" : " ") + "--help)");
  }
}

int fail(Exit code, const std::string &message) {
  note(message);
  return static_cast<int>(code);
}

}  // namespace

int runCommandLine(int argc, char **argv) {
  CLI::App app("tarnwick: install, inspect, change and remove VPN configurations.", "tarnwick");
  app.footer(kExitCodes);
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("tarnwick ") + TARNWICK_VERSION);
  // The global options may also follow the command.
  app.fallthrough();
  Arguments arguments;
  try {
    defineCommands(app, arguments);
    addGlobalOptions(&app, arguments.global);
    for (CLI::App *sub : app.get_subcommands({})) sub->footer(kExitCodes);
    checkCommandWords(app, std::vector<std::string>(argv + 1, argv + argc));
    app.parse(argc, argv);
    finishOutput();
    return 0;
  } catch (const CLI::ParseError &error) {
    // --help, --version and their kind are "errors" whose exit code is success.
    if (error.get_exit_code() == 0) {
      int code = app.exit(error);
      std::fflush(stdout);
      if (std::ferror(stdout)) return fail(Exit::failure, "cannot write to standard output");
      return code;
    }
    return fail(Exit::usage, std::string(error.what()) + " (see tarnwick --help)");
  } catch (const Failure &failure) {
    return fail(failure.code(), failure.what());
  } catch (const std::bad_alloc &) {
    return fail(Exit::failure, "out of memory");
  } catch (const std::exception &error) {
    return fail(Exit::failure, error.what());
  } catch (...) {
    return fail(Exit::failure, "an unexpected failure");
  }
}

}  // namespace tarnwick
