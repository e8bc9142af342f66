#include "lifecycle.hpp"

#include <sys/stat.h>

#include <algorithm>

#include "credentials.hpp"
#include "failure.hpp"
#include "output.hpp"
#include "transaction.hpp"

namespace tarnwick {
namespace {

// A credential of the payload: how a person sets it when the payload does
// not carry it.
struct PayloadCredential {
  Secret which;
  const char *command;
};

constexpr PayloadCredential kCredentials[] = {
    {Secret::accountPassword, "password set"},
    {Secret::proxyPassword, "password set --proxy"},
    {Secret::sharedSecret, "secret set"},
};

// Where the shared secret's extraction looks, in its order: the first one
// present is the one it takes.
constexpr const char *kSharedSecretSources[] = {"IPSecSharedSecret", "SharedSecret",
                                                "ExportedSharedSecret", "IPSecSharedSecretObf"};

// The value of a credential, and the payload key it came from ("" when the
// payload does not carry it).
struct Extracted {
  Ref<PVTypeRef> value;
  bool applies = false;
  std::string source;
};

Extracted extract(PVDictionaryRef payload, Secret which) {
  Extracted extracted;
  Boolean applies = false;
  if (which == Secret::sharedSecret) {
    PVStringRef key = nullptr;
    extracted.value = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadSharedSecret(payload, &key, &applies));
    PVTypeRef ipsec = valueFor(payload, "IPSec");
    for (const char *source : kSharedSecretSources) {
      if (ipsec && PVGetTypeID(ipsec) == PVDictionaryGetTypeID() &&
          valueFor(static_cast<PVDictionaryRef>(ipsec), source)) {
        extracted.source = std::string("IPSec.") + source;
        break;
      }
    }
  } else {
    PVStringRef key =
        which == Secret::proxyPassword ? kJXVPNPropNetProxiesHTTPProxyPasswordKey : nullptr;
    extracted.value = Ref<PVTypeRef>::adopt(JXVPNCopyPayloadPassword(payload, &key, &applies));
    if (which == Secret::proxyPassword) {
      extracted.source = "Proxies.HTTPProxyPassword";
    } else if (key) {
      extracted.source = std::string(PVEqual(key, kZNPropNetPPPAuthPassword) ? "PPP." : "IPSec.") +
                         textOf(key);
    }
  }
  extracted.applies = applies;
  return extracted;
}

[[noreturn]] void failInstall(const PayloadFile &payload, const std::string &what) {
  std::string error = ZNError() ? std::string(": ") + ZNErrorString(ZNError()) : "";
  throw Failure(Exit::failure, payload.name + ": " + what + error);
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

// The proxy password's Coffer item is named after the service, so every
// service of one name shares it.
void warnOfSharedProxyPassword(ZNPreferencesRef prefs, ZNNetworkServiceRef service,
                               Installed &installed) {
  std::string ids;
  for (auto &other : servicesNamed(prefs, serviceName(service))) {
    if (serviceID(other.get()) != serviceID(service)) ids.append(" ").append(serviceID(other.get()));
  }
  if (ids.empty()) return;
  installed.warnings.push_back("the proxy password is kept by service name, so the other "
                               "services named \"" +
                               serviceName(service) + "\" share it:" + ids);
}

// Stores each credential that applies and is present; returns the payload
// keys whose secrets went to the Coffer.
std::vector<std::string> storeCredentials(Transaction &transaction,
                                          const Ref<ZNNetworkServiceRef> &service,
                                          const PayloadFile &payload, Installed &installed) {
  std::vector<std::string> stored;
  for (const PayloadCredential &credential : kCredentials) {
    Extracted extracted = extract(payload.dictionary.get(), credential.which);
    if (!extracted.applies) continue;
    if (!extracted.value || PVGetTypeID(extracted.value.get()) != PVStringGetTypeID()) {
      note("the payload carries no " + std::string(secretName(credential.which)) +
           "; set it with `tarnwick " + credential.command + " \"" +
           serviceName(service.get()) + "\"`");
      continue;
    }
    Secret which = credential.which;
    if (which == Secret::proxyPassword) {
      warnOfSharedProxyPassword(transaction.prefs(), service.get(), installed);
    }
    transaction.setSecret(service, which, static_cast<PVStringRef>(extracted.value.get()));
    stored.push_back(extracted.source);
  }
  return stored;
}

// Takes out of the IPSec configuration any secret the payload left there:
// the library keeps some for a PPTP or vendor service, or with a
// certificate; secrets live in the Coffer only.
void stripIPSecSecrets(ZNNetworkServiceRef service, const PayloadFile &payload) {
  PVDictionaryRef ipsec = JXVPNServiceGetConfiguration(service, kZNEntNetIPSec);
  if (!ipsec) return;
  auto copy = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(ipsec));
  PVIndex count = PVDictionaryGetCount(copy.get());
  std::vector<PVTypeRef> keys(static_cast<size_t>(count));
  PVDictionaryGetKeysAndValues(copy.get(), keys.data(), nullptr);
  bool changed = false;
  for (PVTypeRef key : keys) {
    if (!isSecretKey(textOf(key))) continue;
    PVDictionaryRemoveValue(copy.get(), key);
    changed = true;
  }
  if (changed && !JXVPNServiceSetConfiguration(service, kZNEntNetIPSec, copy.get())) {
    failInstall(payload, "cannot store the IPSec configuration");
  }
}

// The identity of a "_certificateData" container must have reached the
// Coffer; the library itself goes on without it. True when there was one.
bool checkIdentityImported(Transaction &transaction, ZNNetworkServiceRef service,
                           const PayloadFile &payload) {
  PVDictionaryRef dictionary = payload.dictionary.get();
  if (!valueFor(dictionary, "IPSec") || !valueFor(dictionary, "_certificateData") ||
      !valueFor(dictionary, "_certificatePassphrase")) {
    return false;
  }
  PVTypeRef reference =
      JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate);
  if (!reference || PVGetTypeID(reference) != PVDataGetTypeID() ||
      !cofferHolds(static_cast<PVDataRef>(reference))) {
    throw Failure(Exit::credentialStore,
                  payload.name +
                      ": the client identity in \"_certificateData\" could not be imported into "
                      "the Coffer (a wrong \"_certificatePassphrase\", or no PKCS #12 container)");
  }
  transaction.importedIdentity(static_cast<PVDataRef>(reference));
  return true;
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

// Creates one payload's service in the transaction, replacing the services
// it installed before.
Ref<ZNNetworkServiceRef> installOne(Transaction &transaction, const CheckedPayload &checked,
                                    Installed &installed) {
  ZNPreferencesRef prefs = transaction.prefs();
  const PayloadFile &payload = checked.file;
  PVDictionaryRef dictionary = payload.dictionary.get();
  installed.file = payload.name;
  installed.unusedKeys = checked.findings.unusedKeys;
  installed.warnings = checked.findings.warnings;
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
  if (!service) {
    failInstall(payload, "the library could not create the service (see the system log)");
  }
  std::vector<std::string> kept = storeCredentials(transaction, service, payload, installed);
  if (checkIdentityImported(transaction, service.get(), payload)) {
    kept.push_back("_certificatePassphrase");
  }
  kept.insert(kept.end(), checked.findings.clearSecrets.begin(),
              checked.findings.clearSecrets.end());
  for (const std::string &secret : secretPaths(dictionary)) {
    if (std::find(kept.begin(), kept.end(), secret) == kept.end()) {
      installed.droppedSecrets.push_back(secret);
    }
  }
  storeUserName(service.get(), payload);
  stripIPSecSecrets(service.get(), payload);
  recordPayloadIdentity(service.get(), payload);
  installed.service = summarize(service.get());
  return service;
}

bool isFile(const std::string &argument) {
  struct stat status {};
  return stat(argument.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

std::vector<Ref<ZNNetworkServiceRef>> payloadServices(ZNPreferencesRef prefs,
                                                      const std::string &path) {
  PayloadFile payload = readPayloadFile(path);
  if (!hasPayloadIdentity(payload.dictionary.get())) {
    throw Failure(Exit::malformedPayload,
                  payload.name +
                      ": the payload has neither \"PayloadIdentifier\" nor "
                      "\"PayloadUUID\"; remove its service by identifier or name");
  }
  auto matches = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(payload.dictionary.get(), prefs));
  std::vector<Ref<ZNNetworkServiceRef>> services;
  for (PVIndex i = 0; i < PVArrayGetCount(matches.get()); ++i) {
    services.push_back(
        Ref<ZNNetworkServiceRef>::retain(elementAt<ZNNetworkServiceRef>(matches.get(), i)));
  }
  if (services.empty()) {
    throw Failure(Exit::notFound, payload.name + ": no VPN service was installed from this payload");
  }
  return services;
}

std::vector<Ref<ZNNetworkServiceRef>> removalTargets(ZNPreferencesRef prefs,
                                                     const RemovalTarget &target) {
  const ServiceArgument &argument = target.service;
  if (!argument.file.empty()) return payloadServices(prefs, argument.file);
  // A service of that identifier or name comes first: a file that happens
  // to bear a service's name never takes its place.
  std::string text = argument.text();
  if (argument.id.empty() && !text.empty()) {
    auto named = servicesNamed(prefs, text);
    if (target.all && !named.empty()) return named;
    bool isService = !named.empty() || serviceWithID(prefs, text);
    if (!isService && argument.name.empty() && isFile(text)) return payloadServices(prefs, text);
  }
  return {findService(prefs, argument)};
}

}  // namespace

std::vector<Installed> installPayloads(ZNPreferencesRef prefs,
                                       const std::vector<CheckedPayload> &payloads) {
  Transaction transaction(prefs, Transaction::Writes::secrets);
  std::vector<Installed> installed(payloads.size());
  Ref<ZNNetworkServiceRef> last;
  for (size_t i = 0; i < payloads.size(); ++i) {
    last = installOne(transaction, payloads[i], installed[i]);
  }
  // Selecting may commit by itself: it comes once everything else is done,
  // the secrets stored first.
  transaction.storeSecrets();
  if (last && !JXVPNUpdateDefaultsAfterAddingService(last.get(), prefs)) {
    failInstall(payloads.back().file, "cannot select the new service");
  }
  transaction.commit();
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
