// password set, secret set, secret export and secret import. A secret
// enters from standard input or the terminal; a shared secret leaves only
// in one of its two encodings, and only on request.
#include <cstdio>
#include <iostream>

#include "commands.hpp"
#include "credentials.hpp"
#include "failure.hpp"
#include "secret_input.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

// Stores one secret of a service under the lock; the shared secret also
// changes the configuration (the Coffer mark), which is committed.
void storeUnderLock(const GlobalOptions &options, const std::string &serviceArgument, Secret which,
                    const std::string &secret) {
  auto value = makeString(secret);
  auto prefs = openStore(options);
  Transaction transaction(prefs.get(), Transaction::Writes::secrets);
  auto service = findService(prefs.get(), serviceArgument);
  auto previous = copySecret(service.get(), which);
  transaction.onUndo([service, which, previous] {
    if (previous) {
      storeSecret(service.get(), which, previous.get());
    } else {
      removeSecret(service.get(), which);
    }
  });
  storeSecret(service.get(), which, value.get());
  transaction.commit();
  if (!options.json) {
    std::printf("Stored the %s of \"%s\" in the Coffer\n", secretName(which),
                serviceName(service.get()).c_str());
  }
}

// The encrypted form in bytes. The encoder leaves the data's length at 0 on
// purpose; its two bytes per UTF-16 unit lie in the storage reserved behind it.
std::string encryptedBytes(PVStringRef secret) {
  auto encrypted = Ref<PVDataRef>::adopt(JXVPNCreateEncryptedIPSecSharedSecret(secret));
  if (!encrypted) throw Failure(Exit::failure, "cannot encode the shared secret");
  size_t length = 2 * static_cast<size_t>(PVStringGetLength(secret));
  return std::string(reinterpret_cast<const char *>(PVDataGetBytePtr(encrypted.get())), length);
}

std::string exportedBytes(PVStringRef secret) {
  auto exported = Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(secret));
  if (!exported) throw Failure(Exit::failure, "cannot encode the shared secret");
  return std::string(reinterpret_cast<const char *>(PVDataGetBytePtr(exported.get())),
                     static_cast<size_t>(PVDataGetLength(exported.get())));
}

}  // namespace

void passwordSetCommand(const GlobalOptions &options, const std::string &service, bool proxy) {
  Secret which = proxy ? Secret::proxyPassword : Secret::accountPassword;
  // Asked before the lock is taken: a person may take a while to type.
  std::string password = readSecret(std::string(secretName(which)) + " for " + service);
  storeUnderLock(options, service, which, password);
}

void secretSetCommand(const GlobalOptions &options, const std::string &service) {
  std::string secret = readSecret("shared secret for " + service);
  storeUnderLock(options, service, Secret::sharedSecret, secret);
}

void secretExportCommand(const GlobalOptions &options, const std::string &serviceArgument,
                         bool encrypted) {
  auto prefs = openStore(options);
  auto service = findService(prefs.get(), serviceArgument);
  auto secret = copySecret(service.get(), Secret::sharedSecret);
  if (!secret) {
    throw Failure(Exit::notFound,
                  "no shared secret is stored for \"" + serviceName(service.get()) + "\"");
  }
  std::string bytes = encrypted ? encryptedBytes(secret.get()) : exportedBytes(secret.get());
  auto data = Ref<PVDataRef>::adopt(PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                                                 static_cast<PVIndex>(bytes.size())));
  auto text = Ref<PVStringRef>::adopt(PVStringCreateBase64WithData(data.get()));
  std::printf("%s\n", textOf(text.get()).c_str());
}

void secretImportCommand(const GlobalOptions &options, const std::string &service, bool encrypted) {
  std::string line = readSecret("encoded shared secret for " + service);
  auto text = Ref<PVStringRef>::adopt(PVStringCreateWithCString(line.c_str()));
  auto data = Ref<PVDataRef>::adopt(PVDataCreateWithBase64String(text.get()));
  if (!data) throw Failure(Exit::usage, "standard input is not base64");
  auto secret =
      Ref<PVStringRef>::adopt(encrypted ? JXVPNCreateDecryptedIPSecSharedSecret(data.get())
                                        : JXVPNCreateImportedIPSecSharedSecret(data.get()));
  if (!secret || PVStringGetLength(secret.get()) == 0) {
    throw Failure(Exit::usage, std::string("standard input holds no shared secret in the ") +
                                   (encrypted ? "encrypted" : "exported") + " encoding");
  }
  storeUnderLock(options, service, Secret::sharedSecret, PVStringGetCStringPtr(secret.get()));
}

}  // namespace tarnwick
