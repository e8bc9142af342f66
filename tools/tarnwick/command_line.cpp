#include "command_line.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <new>

#include "commands.hpp"
#include "failure.hpp"

namespace tarnwick {
namespace {

constexpr const char *kExitCodes =
    "Exit codes: 0 success, 1 any other failure, 2 usage, 3 malformed payload,\n"
    "4 not found, 5 store cannot be opened, 6 lock, 7 credential store,\n"
    "8 the VPN engine did not take every change (apply), 9 the preferences and\n"
    "the Coffer disagree (check).\n"
    "See tarnwick(1) and tarnwick-payload(5).";

constexpr const char *kServiceHelp = "a service identifier, or a service name held by one service";

struct Arguments {
  GlobalOptions global;
  std::string payload;
  RemovalTarget removal;
  std::string service;
  PropertyArguments property;
  ExportArguments exporting;
  bool proxy = false;
  bool encrypted = false;
  bool repair = false;
};

// Adds a command whose callback runs `run` once parsing has succeeded.
CLI::App *command(CLI::App &parent, const std::string &name, const std::string &help,
                  std::function<void()> run) {
  CLI::App *sub = parent.add_subcommand(name, help);
  sub->callback(std::move(run));
  return sub;
}

// `secret export` and `secret import`: a service, and which encoding.
void addEncodingCommand(CLI::App &secret, const std::string &name, const std::string &help,
                        Arguments &a, std::function<void()> run) {
  CLI::App *sub = command(secret, name, help, std::move(run));
  sub->add_option("SERVICE", a.service, kServiceHelp)->required();
  sub->add_flag("--encrypted", a.encrypted, "the stored (obfuscated) encoding instead");
}

void addTypeOptions(CLI::App *sub, PropertyArguments &property) {
  auto *type = sub->add_option("--type", property.configurationType,
                               "use the configuration of this type (IPSec, PPP, VPN, EAP, L2TP, "
                               "a vendor type) whatever the key");
  sub->add_option("--protocol", property.protocolType,
                  "use this protocol's configuration (IPv4, DNS, Proxies, com.velmora.payload)")
      ->excludes(type);
}

void defineCommands(CLI::App &app, Arguments &a) {
  app.add_option("--store", a.global.store,
                 "the store directory (default: $TARNWICK_STORE, else /var/lib/tarnwick for "
                 "root, else the user's state directory)");
  app.add_flag("--json", a.global.json, "print results as JSON");

  command(app, "install",
          "install a payload as a VPN service (replacing the one it installed before)",
          [&] { installCommand(a.global, a.payload); })
      ->add_option("PAYLOAD", a.payload, "the payload file (JSON, see tarnwick-payload(5))")
      ->required();

  auto *remove = command(app, "remove", "remove VPN services with their secrets",
                         [&] { removeCommand(a.global, a.removal); });
  remove
      ->add_option("TARGET", a.removal.argument,
                   "a payload file (its services), a service identifier or a service name")
      ->required();
  remove->add_flag("--all", a.removal.all, "remove every service of that name");

  command(app, "list", "list the VPN services", [&] { listCommand(a.global); });
  command(app, "on-demand", "list the VPN services that connect on demand",
          [&] { onDemandCommand(a.global); });
  command(app, "show", "show a service: layers, protocols, secrets as stored or absent",
          [&] { showCommand(a.global, a.service); })
      ->add_option("SERVICE", a.service, kServiceHelp)
      ->required();
  command(app, "dump", "print the committed store as JSON", [&] { dumpCommand(a.global); });

  auto *get = command(app, "get", "print one configuration property of a service",
                      [&] { getCommand(a.global, a.property); });
  get->add_option("SERVICE", a.property.service, kServiceHelp)->required();
  get->add_option("KEY", a.property.key, "the configuration key")->required();
  addTypeOptions(get, a.property);

  auto *set = command(app, "set", "set one configuration property of a service",
                      [&] { setCommand(a.global, a.property); });
  set->add_option("SERVICE", a.property.service, kServiceHelp)->required();
  set->add_option("KEY", a.property.key, "the configuration key")->required();
  set->add_option(
         "VALUE", a.property.value,
         "JSON when it parses as JSON (true, 3, \"text\", {\"$data\": \"...\"}), else text")
      ->required();
  addTypeOptions(set, a.property);

  command(app, "select", "make a service the selected VPN service of every set",
          [&] { selectCommand(a.global, a.service); })
      ->add_option("SERVICE", a.service, kServiceHelp)
      ->required();

  auto *password = app.add_subcommand("password", "store a service's passwords in the Coffer");
  password->require_subcommand(1);
  auto *passwordSet =
      command(*password, "set",
              "store the account (or proxy) password, read from standard input or a prompt",
              [&] { passwordSetCommand(a.global, a.service, a.proxy); });
  passwordSet->add_option("SERVICE", a.service, kServiceHelp)->required();
  passwordSet->add_flag("--proxy", a.proxy, "the HTTP proxy password");

  auto *secret = app.add_subcommand("secret", "a service's IPSec shared secret");
  secret->require_subcommand(1);
  command(*secret, "set", "store the shared secret, read from standard input or a prompt",
          [&] { secretSetCommand(a.global, a.service); })
      ->add_option("SERVICE", a.service, kServiceHelp)
      ->required();
  addEncodingCommand(*secret, "export",
                     "print the stored shared secret in its exported encoding (base64)", a,
                     [&] { secretExportCommand(a.global, a.service, a.encrypted); });
  addEncodingCommand(
      *secret, "import",
      "store a shared secret given in its exported encoding (base64, standard input)", a,
      [&] { secretImportCommand(a.global, a.service, a.encrypted); });

  auto *exporting = command(app, "export", "print a service as a payload that install accepts",
                            [&] { exportCommand(a.global, a.exporting); });
  exporting->add_option("SERVICE", a.exporting.service, kServiceHelp)->required();
  exporting->add_option("-o,--output", a.exporting.outputPath, "write to this file instead");
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
}

int fail(Exit code, const std::string &message) {
  std::fprintf(stderr, "tarnwick: %s\n", message.c_str());
  return static_cast<int>(code);
}

}  // namespace

int runCommandLine(int argc, char **argv) {
  CLI::App app("tarnwick: install, inspect, change and remove VPN configurations.", "tarnwick");
  app.footer(kExitCodes);
  app.require_subcommand(1);
  // The global options may also follow the command.
  app.fallthrough();
  Arguments arguments;
  try {
    defineCommands(app, arguments);
    app.parse(argc, argv);
    return 0;
  } catch (const CLI::ParseError &error) {
    // --help and its kind are "errors" whose exit code is success.
    if (error.get_exit_code() == 0) return app.exit(error);
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
