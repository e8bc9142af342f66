// password set, secret set, secret export and secret import. A secret
// enters from standard input or the terminal; a shared secret leaves only
// in one of its two encodings, and only on request.
#include "commands.hpp"
#include "credentials.hpp"
#include "engine_report.hpp"
#include "failure.hpp"
#include "output.hpp"
#include "secret_input.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

// Storing a shared secret makes a service authenticate with it: in a
// certificate service it switches the method, in a PPTP or vendor service
// it adds an IPSec configuration. Refused unless forced, saying which.
void checkUsesSharedSecret(ZNNetworkServiceRef service, bool force) {
  if (force) return;
  std::string type = textOf(JXVPNServiceGetType(service));
  std::string name = serviceName(service);
  if (type != "IPSec" && type != "L2TP") {
    throw Failure(Exit::usage, "\"" + name + "\" is a" + (type == "VPN" ? " vendor VPN" : " " + type) +
                                   " service, which uses no IPSec shared secret: storing one "
                                   "would add an IPSec configuration to it (--force does so)");
  }
  std::string method =
      textOf(JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecAuthenticationMethod));
  if (!method.empty() && method != "SharedSecret") {
    throw Failure(Exit::usage, "\"" + name + "\" authenticates with \"" + method +
                                   "\": storing a shared secret would switch it to shared-secret "
                                   "authentication (--force does so)");
  }
}

// Stores one secret of a service under the lock; the shared secret also
// changes the configuration (the Coffer mark), which is committed.
void storeUnderLock(const GlobalOptions &options, const SecretArguments &arguments, Secret which,
                    const std::string &secret) {
  auto value = makeString(secret);
  auto prefs = openStore(options, Access::existing);
  Transaction transaction(prefs.get(), Transaction::Writes::secrets);
  auto service = findService(prefs.get(), arguments.service);
  if (which == Secret::sharedSecret) checkUsesSharedSecret(service.get(), arguments.force);
  transaction.setSecret(service, which, value.get());
  transaction.commit();
  if (options.json) {
    printJson({{"service", summaryJson(summarize(service.get()))},
               {"secret", secretField(which)},
               {"stored", true},
               {"engine", takeEngineReport()}});
    return;
  }
  emit(std::string("Stored the ") + secretName(which) + " of \"" +
       shown(serviceName(service.get())) + "\" in the Coffer\n");
}

Ref<PVDataRef> dataOf(const std::string &bytes) {
  return Ref<PVDataRef>::adopt(PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                                            static_cast<PVIndex>(bytes.size())));
}

// The encrypted form in bytes. The encoder leaves the data's length at 0 on
// purpose; its two bytes per UTF-16 unit lie in the storage reserved behind
// it. Its decoder stops at the first zero byte, so a secret it cannot give
// back whole (one with an ASCII or Latin-1 character) is refused here.
std::string encryptedBytes(PVStringRef secret) {
  auto encrypted = Ref<PVDataRef>::adopt(JXVPNCreateEncryptedIPSecSharedSecret(secret));
  if (!encrypted) throw Failure(Exit::failure, "cannot encode the shared secret");
  size_t length = 2 * static_cast<size_t>(PVStringGetLength(secret));
  std::string bytes(reinterpret_cast<const char *>(PVDataGetBytePtr(encrypted.get())), length);
  auto back = Ref<PVStringRef>::adopt(JXVPNCreateDecryptedIPSecSharedSecret(dataOf(bytes).get()));
  if (!back || !PVEqual(back.get(), secret)) {
    throw Failure(Exit::failure,
                  "the encrypted encoding cannot carry this shared secret: its decoder stops at "
                  "the first zero byte, which any ASCII or Latin-1 character holds; export it "
                  "without --encrypted");
  }
  return bytes;
}

std::string exportedBytes(PVStringRef secret) {
  auto exported = Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(secret));
  if (!exported) throw Failure(Exit::failure, "cannot encode the shared secret");
  return bytesOf(exported.get());
}

// Asked before a secret is typed: a refusal after it would waste it.
void checkBeforeReading(const GlobalOptions &options, const SecretArguments &arguments) {
  auto prefs = openStore(options, Access::existing);
  checkUsesSharedSecret(findService(prefs.get(), arguments.service).get(), arguments.force);
}

}  // namespace

void passwordSetCommand(const GlobalOptions &options, const SecretArguments &arguments) {
  Secret which = arguments.proxy ? Secret::proxyPassword : Secret::accountPassword;
  // Asked before the lock is taken: a person may take a while to type.
  std::string password =
      readSecret(std::string(secretName(which)) + " for " + arguments.service.text());
  storeUnderLock(options, arguments, which, password);
}

void secretSetCommand(const GlobalOptions &options, const SecretArguments &arguments) {
  checkBeforeReading(options, arguments);
  std::string secret = readSecret("shared secret for " + arguments.service.text());
  storeUnderLock(options, arguments, Secret::sharedSecret, secret);
}

void secretExportCommand(const GlobalOptions &options, const SecretArguments &arguments) {
  auto prefs = openStore(options, Access::existing);
  auto service = findService(prefs.get(), arguments.service);
  auto secret = copySecret(service.get(), Secret::sharedSecret);
  if (!secret) {
    throw Failure(Exit::notFound,
                  "no shared secret is stored for \"" + serviceName(service.get()) + "\"");
  }
  std::string bytes =
      arguments.encrypted ? encryptedBytes(secret.get()) : exportedBytes(secret.get());
  auto text = Ref<PVStringRef>::adopt(PVStringCreateBase64WithData(dataOf(bytes).get()));
  if (options.json) {
    printJson({{"service", summaryJson(summarize(service.get()))},
               {"encoding", arguments.encrypted ? "encrypted" : "exported"},
               {"base64", textOf(text.get())}});
    return;
  }
  emit(textOf(text.get()) + "\n");
}

void secretImportCommand(const GlobalOptions &options, const SecretArguments &arguments) {
  checkBeforeReading(options, arguments);
  std::string line = readSecret("encoded shared secret for " + arguments.service.text());
  auto text = Ref<PVStringRef>::adopt(PVStringCreateWithCString(line.c_str()));
  auto data = Ref<PVDataRef>::adopt(PVDataCreateWithBase64String(text.get()));
  if (!data) throw Failure(Exit::usage, "standard input is not base64");
  auto secret = Ref<PVStringRef>::adopt(arguments.encrypted
                                            ? JXVPNCreateDecryptedIPSecSharedSecret(data.get())
                                            : JXVPNCreateImportedIPSecSharedSecret(data.get()));
  if (!secret || PVStringGetLength(secret.get()) == 0) {
    throw Failure(Exit::usage, std::string("standard input holds no shared secret in the ") +
                                   (arguments.encrypted ? "encrypted" : "exported") + " encoding");
  }
  storeUnderLock(options, arguments, Secret::sharedSecret, PVStringGetCStringPtr(secret.get()));
}

}  // namespace tarnwick
