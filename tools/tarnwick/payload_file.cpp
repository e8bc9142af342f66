#include "payload_file.hpp"

#include <algorithm>
#include <filesystem>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "failure.hpp"
#include "tarnwick.h"

namespace tarnwick {
namespace {

// The kinds of value a key may hold.
enum Kind : unsigned {
  kString = 1,
  kData = 2,
  kDictionary = 4,
  kArray = 8,
  kNumber = 16,
  kBoolean = 32
};

// The keys the installer and the credential extraction read, with the kinds
// they read them as; "" for a top-level key.
struct KindRule {
  const char *dictionary;
  const char *key;
  unsigned kinds;
};

constexpr KindRule kKindRules[] = {
    {"", "VPNSubType", kString},
    {"", "VendorConfig", kDictionary},
    {"", "PPP", kDictionary},
    {"", "IPSec", kDictionary},
    {"", "VPN", kDictionary},
    {"", "EAP", kDictionary},
    {"", "IPv4", kDictionary},
    {"", "Proxies", kDictionary},
    {"", "UserDefinedName", kString},
    {"", "PayloadDisplayName", kString},
    {"", "PayloadIdentifier", kString},
    {"", "PayloadUUID", kString},
    {"", "PayloadOrganization", kString},
    {"", "_certificateData", kData},
    {"", "_certificatePassphrase", kString},
    {"IPSec", "AuthenticationMethod", kString},
    {"IPSec", "XAuthName", kString},
    {"IPSec", "XAuthPassword", kString | kData},
    {"IPSec", "XAuthPasswordEncryption", kString},
    {"IPSec", "SharedSecret", kString | kData},
    {"IPSec", "IPSecSharedSecret", kString | kData},
    {"IPSec", "ExportedSharedSecret", kData},
    {"IPSec", "IPSecSharedSecretObf", kData},
    {"PPP", "AuthName", kString},
    {"PPP", "AuthPassword", kString | kData},
    {"PPP", "AuthEAPPlugins", kArray},
    {"Proxies", "HTTPProxyUsername", kString},
    {"Proxies", "HTTPProxyPassword", kString | kData},
    {"Proxies", "HTTPProxyAuthenticated", kNumber | kBoolean},
    {"VPN", "AuthenticationMethod", kString},
};

unsigned kindBit(PVTypeRef value) {
  PVTypeID type = PVGetTypeID(value);
  if (type == PVStringGetTypeID()) return kString;
  if (type == PVDataGetTypeID()) return kData;
  if (type == PVDictionaryGetTypeID()) return kDictionary;
  if (type == PVArrayGetTypeID()) return kArray;
  if (type == PVNumberGetTypeID()) return kNumber;
  if (type == PVBooleanGetTypeID()) return kBoolean;
  return 0;
}

std::string kindWords(unsigned kinds) {
  static const std::pair<unsigned, const char *> names[] = {
      {kString, "a string"}, {kData, "data"},       {kDictionary, "a dictionary"},
      {kArray, "an array"},  {kNumber, "a number"}, {kBoolean, "a boolean"}};
  std::string words;
  for (const auto &[bit, name] : names) {
    if (!(kinds & bit)) continue;
    if (!words.empty()) words += " or ";
    words += name;
  }
  return words;
}

[[noreturn]] void malformed(const PayloadFile &payload, const std::string &what) {
  throw Failure(Exit::malformedPayload, payload.path + ": " + what);
}

bool has(PVDictionaryRef dictionary, const std::string &key) {
  return valueFor(dictionary, key) != nullptr;
}

PVDictionaryRef dictionaryFor(PVDictionaryRef payload, const std::string &key) {
  PVTypeRef value = valueFor(payload, key);
  return value && PVGetTypeID(value) == PVDictionaryGetTypeID()
             ? static_cast<PVDictionaryRef>(value)
             : nullptr;
}

}  // namespace

PVTypeRef valueFor(PVDictionaryRef dictionary, const std::string &key) {
  if (!dictionary) return nullptr;
  auto keyString = makeString(key);
  return PVDictionaryGetValue(dictionary, keyString.get());
}

PayloadFile readPayloadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    int error = errno;
    throw Failure(error == ENOENT ? Exit::notFound : Exit::failure,
                  "cannot read " + path + ": " + std::strerror(error));
  }
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto value = valueFromJsonText(text, {path, std::filesystem::path(path).parent_path()});
  if (PVGetTypeID(value.get()) != PVDictionaryGetTypeID()) {
    throw Failure(Exit::malformedPayload, path + ": a payload is a JSON object");
  }
  return {path, pv::Ref<PVDictionaryRef>::retain(static_cast<PVDictionaryRef>(value.get()))};
}

void checkInstallable(const PayloadFile &payload) {
  PVDictionaryRef dictionary = payload.dictionary.get();
  PVTypeRef type = valueFor(dictionary, "VPNType");
  if (!type) malformed(payload, "the payload has no \"VPNType\"");
  if (kindBit(type) != kString) {
    malformed(payload, "\"VPNType\" must be a string, not " + kindOf(type));
  }
  std::string typeText = textOf(type);
  if (typeText != "IPSec" && typeText != "L2TP" && typeText != "PPTP" && typeText != "VPN") {
    malformed(payload, "\"VPNType\" must be IPSec, L2TP, PPTP or VPN, not \"" + typeText + "\"");
  }
  for (const KindRule &rule : kKindRules) {
    PVDictionaryRef holder =
        *rule.dictionary ? dictionaryFor(dictionary, rule.dictionary) : dictionary;
    PVTypeRef value = valueFor(holder, rule.key);
    if (!value || (kindBit(value) & rule.kinds)) continue;
    std::string key = *rule.dictionary ? std::string(rule.dictionary) + "." + rule.key : rule.key;
    malformed(payload,
              "\"" + key + "\" must be " + kindWords(rule.kinds) + ", not " + kindOf(value));
  }
  if (typeText == "VPN" && !has(dictionary, "VPNSubType")) {
    malformed(payload, "a \"VPN\" payload needs \"VPNSubType\", the vendor's type");
  }
}

std::vector<std::string> unusedPayloadKeys(PVDictionaryRef payload) {
  std::string type = textOf(valueFor(payload, "VPNType"));
  PVDictionaryRef ipsec = dictionaryFor(payload, "IPSec");
  PVDictionaryRef vpn = dictionaryFor(payload, "VPN");
  bool identityImported =
      ipsec && has(payload, "_certificateData") && has(payload, "_certificatePassphrase");
  // Read by the IPSec layer only when no container decides, by the VPN
  // layer only when its own dictionary has none.
  bool certificateUUIDRead =
      (ipsec && !has(payload, "_certificateData") && !has(ipsec, "PayloadCertificateUUID")) ||
      (vpn && !has(vpn, "PayloadCertificateUUID"));
  auto used = [&](const std::string &key) {
    if (key == "PPP") return type != "IPSec" && type != "VPN";
    if (key == "_certificateData" || key == "_certificatePassphrase") return identityImported;
    if (key == "PayloadCertificateUUID") return certificateUUIDRead;
    if (key == "VendorConfig") return vpn != nullptr && has(payload, "VPNSubType");
    if (key == "PayloadDisplayName") return !has(payload, "UserDefinedName");
    static const char *const always[] = {"VPNType",
                                         "VPNSubType",
                                         "Proxies",
                                         "EAP",
                                         "IPv4",
                                         "IPSec",
                                         "VPN",
                                         "OverridePrimary",
                                         "UserDefinedName",
                                         "PayloadIdentifier",
                                         "PayloadUUID",
                                         "PayloadOrganization"};
    return std::find(std::begin(always), std::end(always), key) != std::end(always);
  };
  PVIndex count = PVDictionaryGetCount(payload);
  std::vector<PVTypeRef> keys(static_cast<size_t>(count));
  PVDictionaryGetKeysAndValues(payload, keys.data(), nullptr);
  std::vector<std::string> unused;
  for (PVTypeRef key : keys) {
    if (!used(textOf(key))) unused.push_back(textOf(key));
  }
  std::sort(unused.begin(), unused.end());
  return unused;
}

bool hasPayloadIdentity(PVDictionaryRef payload) {
  return has(payload, "PayloadIdentifier") || has(payload, "PayloadUUID");
}

}  // namespace tarnwick
