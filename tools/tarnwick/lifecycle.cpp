#include "lifecycle.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "credentials.hpp"
#include "failure.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

// A credential of the payload: how the extraction is asked for it, and
// how a person sets it when the payload does not carry it.
struct PayloadCredential {
  Secret which;
  const char *command;
};

constexpr PayloadCredential kCredentials[] = {
    {Secret::accountPassword, "password set"},
    {Secret::proxyPassword, "password set --proxy"},
    {Secret::sharedSecret, "secret set"},
};

// The IPSec keys that would keep a secret in the preferences in plain (or
// in an encoding anyone can undo), and the credential each one is.
struct PlainSecretKey {
  const char *key;
  Secret which;
};

constexpr PlainSecretKey kPlainSecretKeys[] = {
    {"SharedSecret", Secret::sharedSecret},         {"IPSecSharedSecret", Secret::sharedSecret},
    {"ExportedSharedSecret", Secret::sharedSecret}, {"IPSecSharedSecretObf", Secret::sharedSecret},
    {"XAuthPassword", Secret::accountPassword},
};

Ref<PVTypeRef> extract(PVDictionaryRef payload, Secret which, Boolean &applies) {
  PVStringRef key =
      which == Secret::proxyPassword ? kJXVPNPropNetProxiesHTTPProxyPasswordKey : nullptr;
  if (which == Secret::sharedSecret) {
    return Ref<PVTypeRef>::adopt(JXVPNCopyPayloadSharedSecret(payload, &key, &applies));
  }
  return Ref<PVTypeRef>::adopt(JXVPNCopyPayloadPassword(payload, &key, &applies));
}

[[noreturn]] void failInstall(const PayloadFile &payload, const std::string &what) {
  std::string error = ZNError() ? std::string(": ") + ZNErrorString(ZNError()) : "";
  throw Failure(Exit::failure, payload.path + ": " + what + error);
}

// The account user name goes into the configuration when the payload's
// dictionaries did not put it there already.
void storeUserName(ZNNetworkServiceRef service, const PayloadFile &payload) {
  PVStringRef key = nullptr;
  Boolean applies = false;
  auto name =
      Ref<PVTypeRef>::adopt(JXVPNCopyPayloadUserName(payload.dictionary.get(), &key, &applies));
  if (!applies || !name || !key || JXVPNServiceGetConfigurationProperty(service, key)) return;
  if (!JXVPNServiceSetConfigurationProperty(service, key, name.get())) {
    failInstall(payload, "cannot store the user name");
  }
}

// Stores each credential that applies and is present; returns which were stored.
std::vector<Secret> storeCredentials(Transaction &transaction,
                                     const Ref<ZNNetworkServiceRef> &service,
                                     const PayloadFile &payload) {
  std::vector<Secret> stored;
  for (const PayloadCredential &credential : kCredentials) {
    Boolean applies = false;
    auto value = extract(payload.dictionary.get(), credential.which, applies);
    if (!applies) continue;
    if (!value || PVGetTypeID(value.get()) != PVStringGetTypeID()) {
      std::fprintf(
          stderr, "tarnwick: the payload carries no %s; set it with `tarnwick %s \"%s\"`\n",
          secretName(credential.which), credential.command, serviceName(service.get()).c_str());
      continue;
    }
    Secret which = credential.which;
    transaction.onUndo([service, which] { removeSecret(service.get(), which); });
    storeSecret(service.get(), which, static_cast<PVStringRef>(value.get()));
    stored.push_back(which);
  }
  return stored;
}

// Takes out of the IPSec configuration any secret the payload left there:
// secrets live in the Coffer only.
void stripPlainSecrets(ZNNetworkServiceRef service, const std::vector<Secret> &stored,
                       const PayloadFile &payload) {
  PVDictionaryRef ipsec = JXVPNServiceGetConfiguration(service, kZNEntNetIPSec);
  if (!ipsec) return;
  auto copy = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(ipsec));
  bool changed = false;
  for (const PlainSecretKey &plain : kPlainSecretKeys) {
    auto key = makeString(plain.key);
    if (!PVDictionaryContainsKey(copy.get(), key.get())) continue;
    PVDictionaryRemoveValue(copy.get(), key.get());
    changed = true;
    if (std::find(stored.begin(), stored.end(), plain.which) == stored.end()) {
      std::fprintf(stderr,
                   "tarnwick: \"IPSec.%s\" is not used by this configuration; it was not stored\n",
                   plain.key);
    }
  }
  if (changed && !JXVPNServiceSetConfiguration(service, kZNEntNetIPSec, copy.get())) {
    failInstall(payload, "cannot store the IPSec configuration");
  }
}

// The identity of a "_certificateData" container must have reached the
// Coffer; the library itself goes on without it.
void checkIdentityImported(Transaction &transaction, ZNNetworkServiceRef service,
                           const PayloadFile &payload) {
  PVDictionaryRef dictionary = payload.dictionary.get();
  if (!valueFor(dictionary, "IPSec") || !valueFor(dictionary, "_certificateData") ||
      !valueFor(dictionary, "_certificatePassphrase")) {
    return;
  }
  PVTypeRef reference =
      JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate);
  if (!reference || PVGetTypeID(reference) != PVDataGetTypeID() ||
      !cofferHolds(static_cast<PVDataRef>(reference))) {
    throw Failure(Exit::credentialStore,
                  payload.path +
                      ": the client identity in \"_certificateData\" could not be imported into "
                      "the Coffer (a wrong \"_certificatePassphrase\", or no PKCS #12 container)");
  }
  transaction.importedIdentity(static_cast<PVDataRef>(reference));
}

// "PayloadIdentifier", "PayloadUUID" and "PayloadOrganization" go into the
// payload protocol, which is how `remove PAYLOAD` finds the service again.
void recordPayloadIdentity(ZNNetworkServiceRef service, const PayloadFile &payload) {
  auto identity = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const char *key : {"PayloadIdentifier", "PayloadUUID", "PayloadOrganization"}) {
    if (PVTypeRef value = valueFor(payload.dictionary.get(), key)) {
      PVDictionarySetValue(identity.get(), makeString(key).get(), value);
    }
  }
  if (PVDictionaryGetCount(identity.get()) == 0) return;
  if (!JXVPNServiceMergeProtocolConfiguration(service, kJXVPNProtocolTypePayload, identity.get())) {
    failInstall(payload, "cannot record the payload's identity");
  }
}

bool isPayloadFile(const std::string &argument) {
  struct stat status {};
  return stat(argument.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::vector<Ref<ZNNetworkServiceRef>> removalTargets(ZNPreferencesRef prefs,
                                                     const RemovalTarget &target) {
  if (isPayloadFile(target.argument)) {
    PayloadFile payload = readPayloadFile(target.argument);
    if (!hasPayloadIdentity(payload.dictionary.get())) {
      throw Failure(Exit::malformedPayload,
                    payload.path +
                        ": the payload has neither \"PayloadIdentifier\" nor "
                        "\"PayloadUUID\"; remove its service by identifier or name");
    }
    auto matches =
        Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(payload.dictionary.get(), prefs));
    std::vector<Ref<ZNNetworkServiceRef>> services;
    for (PVIndex i = 0; i < PVArrayGetCount(matches.get()); ++i) {
      services.push_back(
          Ref<ZNNetworkServiceRef>::retain(elementAt<ZNNetworkServiceRef>(matches.get(), i)));
    }
    if (services.empty()) {
      throw Failure(Exit::notFound,
                    payload.path + ": no VPN service was installed from this payload");
    }
    return services;
  }
  if (target.all) {
    auto named = servicesNamed(prefs, target.argument);
    if (!named.empty()) return named;
  }
  return {findService(prefs, target.argument)};
}

}  // namespace

ServiceSummary summarize(ZNNetworkServiceRef service) {
  return {serviceID(service), serviceName(service), textOf(JXVPNServiceGetType(service)),
          vendorType(service)};
}

Installed installPayload(ZNPreferencesRef prefs, const PayloadFile &payload) {
  PVDictionaryRef dictionary = payload.dictionary.get();
  Transaction transaction(prefs, Transaction::Writes::secrets);
  Installed installed;
  // Reinstalling a payload replaces its service. Removed first, so that the
  // new service's name-keyed proxy password is not removed with the old one.
  if (hasPayloadIdentity(dictionary)) {
    auto matches = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(dictionary, prefs));
    for (PVIndex i = 0; i < PVArrayGetCount(matches.get()); ++i) {
      auto old = elementAt<ZNNetworkServiceRef>(matches.get(), i);
      installed.replaced.push_back(summarize(old));
      transaction.removeService(old);
    }
  }
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(JXVPNServiceCreateWithPayloadAtom(dictionary, prefs));
  if (!service)
    failInstall(payload, "the library could not create the service (see the system log)");
  checkIdentityImported(transaction, service.get(), payload);
  storeUserName(service.get(), payload);
  std::vector<Secret> stored = storeCredentials(transaction, service, payload);
  stripPlainSecrets(service.get(), stored, payload);
  recordPayloadIdentity(service.get(), payload);
  transaction.storeSecrets();  // selecting the service may commit
  if (!JXVPNUpdateDefaultsAfterAddingService(service.get(), prefs)) {
    failInstall(payload, "cannot select the new service");
  }
  transaction.commit();
  installed.service = summarize(service.get());
  installed.unusedKeys = unusedPayloadKeys(dictionary);
  return installed;
}

std::vector<ServiceSummary> removeServices(ZNPreferencesRef prefs, const RemovalTarget &target) {
  Transaction transaction(prefs, Transaction::Writes::secrets);
  std::vector<ServiceSummary> removed;
  for (auto &service : removalTargets(prefs, target)) {
    removed.push_back(summarize(service.get()));
    transaction.removeService(service.get());
  }
  transaction.storeSecrets();  // a new selection commits
  // False when no VPN service is left to select: nothing to do then.
  (void)JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(prefs);
  transaction.commit();
  return removed;
}

}  // namespace tarnwick
