#include "payload_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "credentials.hpp"
#include "failure.hpp"
#include "tarnwick.h"

namespace tarnwick {
namespace {

// No payload comes near this; a device or a runaway pipe would never end.
constexpr size_t kMaxPayloadBytes = 16 << 20;

// The kinds of value a key may hold.
enum Kind : unsigned {
  kString = 1,
  kData = 2,
  kDictionary = 4,
  kArray = 8,
  kNumber = 16,
  kBoolean = 32
};

// The top-level keys the installer and the credential extraction read,
// with the kinds they read them as.
struct KindRule {
  const char *key;
  unsigned kinds;
};

constexpr KindRule kTopLevelRules[] = {
    {"VPNSubType", kString},        {"VendorConfig", kDictionary},
    {"PPP", kDictionary},           {"IPSec", kDictionary},
    {"VPN", kDictionary},           {"EAP", kDictionary},
    {"IPv4", kDictionary},          {"Proxies", kDictionary},
    {"UserDefinedName", kString},   {"PayloadDisplayName", kString},
    {"PayloadIdentifier", kString}, {"PayloadUUID", kString},
    {"PayloadOrganization", kString}, {"_certificateData", kData},
    {"_certificatePassphrase", kString},
};

// The kinds a value of a known key may have. Secrets may also come as
// data, which the credential extraction reads as UTF-8.
unsigned kindsOf(JXVPNValueKind kind, bool secret) {
  switch (kind) {
    case kJXVPNValueKindString:
      return secret ? kString | kData : kString;
    case kJXVPNValueKindNumber:
      return kNumber;
    case kJXVPNValueKindFlag:
      return kNumber | kBoolean;
    case kJXVPNValueKindData:
      return kData;
    case kJXVPNValueKindStringArray:
      return kArray;
    default:
      return ~0u;
  }
}

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
      {kArray, "a list"},    {kNumber, "a number"}, {kBoolean, "a boolean"}};
  std::string words;
  for (const auto &[bit, name] : names) {
    if (!(kinds & bit)) continue;
    if (!words.empty()) words += " or ";
    words += name;
  }
  return words;
}

[[noreturn]] void malformed(const PayloadFile &payload, const std::string &what) {
  throw Failure(Exit::malformedPayload, payload.name + ": " + what);
}

void checkKind(const PayloadFile &payload, const std::string &path, PVTypeRef value,
               unsigned kinds) {
  if (kindBit(value) & kinds) return;
  malformed(payload, "\"" + path + "\" must be " + kindWords(kinds) + ", not " + kindOf(value));
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

// A dictionary's entries with their keys as text, in key order.
std::vector<std::pair<std::string, PVTypeRef>> entries(PVDictionaryRef dictionary) {
  PVIndex count = PVDictionaryGetCount(dictionary);
  std::vector<PVTypeRef> keys(static_cast<size_t>(count));
  std::vector<PVTypeRef> values(static_cast<size_t>(count));
  PVDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  std::vector<std::pair<std::string, PVTypeRef>> list;
  for (PVIndex i = 0; i < count; ++i) list.emplace_back(textOf(keys[i]), values[i]);
  std::sort(list.begin(), list.end());
  return list;
}

// Appends the path of every secret inside `value`, found at any depth.
void collectSecrets(const std::string &path, PVTypeRef value, std::vector<std::string> &out) {
  if (PVGetTypeID(value) == PVArrayGetTypeID()) {
    auto array = static_cast<PVArrayRef>(value);
    for (PVIndex i = 0; i < PVArrayGetCount(array); ++i) {
      collectSecrets(path + "[" + std::to_string(i) + "]", PVArrayGetValueAtIndex(array, i), out);
    }
  }
  if (PVGetTypeID(value) != PVDictionaryGetTypeID()) return;
  for (const auto &[key, member] : entries(static_cast<PVDictionaryRef>(value))) {
    std::string memberPath = path.empty() ? key : path + "." + key;
    if (isSecretKey(key)) out.push_back(memberPath);
    collectSecrets(memberPath, member, out);
  }
}

// The configurations of the payload whose keys are the library's, by the
// payload key that holds them: each key is checked against what that
// configuration knows, and its value against the key's kind.
void checkConfiguration(const PayloadFile &payload, const std::string &payloadKey,
                        PayloadFindings &findings) {
  PVDictionaryRef dictionary = dictionaryFor(payload.dictionary.get(), payloadKey);
  if (!dictionary) return;
  auto type = makeString(payloadKey);
  for (const auto &[key, value] : entries(dictionary)) {
    std::string path = payloadKey + "." + key;
    JXVPNValueKind kind = JXVPNGetValueKindForKey(makeString(key).get(), type.get());
    if (kind == kJXVPNValueKindUnknown) {
      findings.unusedKeys.push_back(path);
      continue;
    }
    checkKind(payload, path, value, kindsOf(kind, isSecretKey(key)));
    if (kind != kJXVPNValueKindStringArray) continue;
    auto list = static_cast<PVArrayRef>(value);
    for (PVIndex i = 0; i < PVArrayGetCount(list); ++i) {
      checkKind(payload, path + "[" + std::to_string(i) + "]", PVArrayGetValueAtIndex(list, i),
                kString);
    }
  }
}

// The top-level keys installation leaves unused: unknown keys, and known
// keys that have no effect in this payload.
std::vector<std::string> unusedTopLevelKeys(PVDictionaryRef payload) {
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
  std::vector<std::string> unused;
  for (const auto &[key, value] : entries(payload)) {
    if (!used(key)) unused.push_back(key);
  }
  return unused;
}

// Secrets that installation leaves in the preferences: the library strips
// them only from the PPP, Proxies and IPSec dictionaries (and the tool
// takes the IPSec ones out after it).
std::vector<std::string> clearSecrets(PVDictionaryRef payload) {
  std::vector<std::string> secrets;
  for (const char *key : {"EAP", "IPv4", "VPN"}) {
    if (PVTypeRef value = valueFor(payload, key)) collectSecrets(key, value, secrets);
  }
  if (dictionaryFor(payload, "VPN") && has(payload, "VPNSubType")) {
    if (PVTypeRef vendor = valueFor(payload, "VendorConfig")) {
      collectSecrets("VendorConfig", vendor, secrets);
    }
  }
  return secrets;
}

// Where each type of service finds its server.
const char *serverAddressPath(const std::string &type) {
  if (type == "IPSec") return "IPSec.RemoteAddress";
  if (type == "VPN") return "VPN.RemoteAddress";
  return "PPP.CommRemoteAddress";
}

std::string readAll(int fd, const std::string &name) {
  std::string text;
  char buffer[65536];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      throw Failure(Exit::malformedPayload, "cannot read " + name + ": " + std::strerror(errno));
    }
    text.append(buffer, static_cast<size_t>(n));
    if (text.size() > kMaxPayloadBytes) {
      throw Failure(Exit::malformedPayload, name + ": larger than 16 MiB, not a payload");
    }
  }
  return text;
}

}  // namespace

PVTypeRef valueFor(PVDictionaryRef dictionary, const std::string &key) {
  if (!dictionary) return nullptr;
  auto keyString = makeString(key);
  return PVDictionaryGetValue(dictionary, keyString.get());
}

PayloadFile readPayloadFile(const std::string &path) {
  bool standardInput = path == "-";
  std::string name = standardInput ? "standard input" : path;
  int fd = standardInput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    int error = errno;
    throw Failure(error == ENOENT ? Exit::notFound : Exit::failure,
                  "cannot read " + path + ": " + std::strerror(error));
  }
  struct stat info {};
  std::string text;
  if (fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
    if (!standardInput) ::close(fd);
    throw Failure(Exit::malformedPayload, path + ": a directory, not a payload file");
  }
  try {
    text = readAll(fd, name);
  } catch (...) {
    if (!standardInput) ::close(fd);
    throw;
  }
  if (!standardInput) ::close(fd);
  // "$file" names are relative to the payload's folder; for standard input,
  // to the working directory.
  std::filesystem::path folder = standardInput ? std::filesystem::path(".")
                                               : std::filesystem::path(path).parent_path();
  if (folder.empty()) folder = ".";
  auto value = valueFromJsonText(text, {name, folder});
  if (PVGetTypeID(value.get()) != PVDictionaryGetTypeID()) {
    throw Failure(Exit::malformedPayload, name + ": a payload is a JSON object");
  }
  return {path, name, pv::Ref<PVDictionaryRef>::retain(static_cast<PVDictionaryRef>(value.get()))};
}

PayloadFindings checkPayload(const PayloadFile &payload) {
  PVDictionaryRef dictionary = payload.dictionary.get();
  PVTypeRef type = valueFor(dictionary, "VPNType");
  if (!type) malformed(payload, "the payload has no \"VPNType\"");
  checkKind(payload, "VPNType", type, kString);
  std::string typeText = textOf(type);
  if (typeText != "IPSec" && typeText != "L2TP" && typeText != "PPTP" && typeText != "VPN") {
    malformed(payload, "\"VPNType\" must be IPSec, L2TP, PPTP or VPN, not \"" + typeText + "\"");
  }
  for (const KindRule &rule : kTopLevelRules) {
    if (PVTypeRef value = valueFor(dictionary, rule.key)) {
      checkKind(payload, rule.key, value, rule.kinds);
    }
  }
  if (typeText == "VPN" && !has(dictionary, "VPNSubType")) {
    malformed(payload, "a \"VPN\" payload needs \"VPNSubType\", the vendor's type");
  }

  PayloadFindings findings;
  findings.unusedKeys = unusedTopLevelKeys(dictionary);
  for (const char *key : {"PPP", "IPSec", "VPN", "IPv4", "Proxies"}) {
    bool unused = std::find(findings.unusedKeys.begin(), findings.unusedKeys.end(), key) !=
                  findings.unusedKeys.end();
    if (!unused) checkConfiguration(payload, key, findings);
  }
  std::sort(findings.unusedKeys.begin(), findings.unusedKeys.end());
  findings.clearSecrets = clearSecrets(dictionary);

  std::string server = serverAddressPath(typeText);
  std::string layer = server.substr(0, server.find('.'));
  PVTypeRef address = valueFor(dictionaryFor(dictionary, layer), server.substr(layer.size() + 1));
  if (!address || textOf(address).empty()) {
    findings.warnings.push_back("no server address (\"" + server +
                                "\"): the service cannot connect until one is set");
  }
  return findings;
}

std::vector<std::string> secretPaths(PVDictionaryRef payload) {
  std::vector<std::string> secrets;
  collectSecrets("", payload, secrets);
  return secrets;
}

bool hasPayloadIdentity(PVDictionaryRef payload) {
  return has(payload, "PayloadIdentifier") || has(payload, "PayloadUUID");
}

}  // namespace tarnwick
