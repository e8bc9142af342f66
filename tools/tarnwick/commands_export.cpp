// export: a service as a payload that `install` accepts, so that a
// configuration moves between devices. What only makes sense on this
// device stays behind: the Coffer mark, the persistent reference of the
// client identity, the passwords. The shared secret comes along in its
// exported encoding, on request only.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands.hpp"
#include "credentials.hpp"
#include "describe.hpp"
#include "failure.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

void note(const std::string &text) { std::fprintf(stderr, "tarnwick: %s\n", text.c_str()); }

// The subject of the client certificate a persistent reference names: the
// value of "PayloadCertificateUUID", which keeps certificate authentication
// when the payload carries no container.
std::string certificateSubject(PVDataRef reference) {
  const PVTypeRef keys[] = {kVltValuePersistentRef, kVltReturnData};
  const PVTypeRef values[] = {reference, kPVBooleanTrue};
  auto query = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 2));
  PVTypeRef der = nullptr;
  if (VltItemCopyMatching(query.get(), &der) != kVltSuccess) return "client certificate";
  auto derData = Ref<PVTypeRef>::adopt(der);
  auto certificate = Ref<VltCertificateRef>::adopt(
      VltCertificateCreateWithData(static_cast<PVDataRef>(derData.get())));
  auto subject = Ref<PVStringRef>::adopt(VltCertificateCopySubjectSummary(certificate.get()));
  return subject ? textOf(subject.get()) : "client certificate";
}

// A layer's configuration as it goes into the payload: no secret, no
// Coffer mark, no persistent reference (noting the certificate method).
Json portableConfiguration(PVDictionaryRef configuration, Json &payload) {
  Json json = configuration ? jsonFromValue(configuration) : Json::object();
  for (auto it = json.begin(); it != json.end();) {
    bool cofferMark = it.key() == "SharedSecretEncryption" && it.value() == "Coffer";
    if (it.key() == "LocalCertificate" && it.value().is_object()) {
      auto reference = Ref<PVDataRef>::adopt(
          PVDataCreateWithBase64String(makeString(it.value().value("$data", "")).get()));
      payload["PayloadCertificateUUID"] = certificateSubject(reference.get());
      note(
          "the client identity stays in this device's Coffer: add \"_certificateData\" and "
          "\"_certificatePassphrase\" to carry it");
      it = json.erase(it);
    } else if (isSecretKey(it.key()) || cofferMark) {
      it = json.erase(it);
    } else {
      ++it;
    }
  }
  return json;
}

// Where each layer's configuration goes in a payload.
std::string payloadKeyOfLayer(ZNNetworkServiceRef service, ZNNetworkInterfaceRef layer) {
  std::string type = textOf(ZNNetworkInterfaceGetInterfaceType(layer));
  if (type == "IPSec" || type == "PPP" || type == "VPN") return type;
  if (!vendorType(service).empty() && type == vendorType(service)) return "VendorConfig";
  return "";
}

void addLayers(ZNNetworkServiceRef service, Json &payload) {
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    std::string type = textOf(ZNNetworkInterfaceGetInterfaceType(layer));
    std::string key = payloadKeyOfLayer(service, layer);
    PVDictionaryRef configuration = ZNNetworkInterfaceGetConfiguration(layer);
    if (!key.empty()) {
      payload[key] = portableConfiguration(configuration, payload);
    } else if (PVDictionaryGetCount(configuration) > 0) {
      note("the " + type + " layer's configuration has no place in a payload; left out");
    }
    auto types = Ref<PVArrayRef>::adopt(ZNNetworkInterfaceCopyExtendedConfigurationTypes(layer));
    for (PVIndex i = 0; i < PVArrayGetCount(types.get()); ++i) {
      auto extendedType = static_cast<PVStringRef>(PVArrayGetValueAtIndex(types.get(), i));
      std::string name = textOf(extendedType);
      PVDictionaryRef extended = ZNNetworkInterfaceGetExtendedConfiguration(layer, extendedType);
      if (name == "IPSec" || name == "EAP") {
        payload[name] = portableConfiguration(extended, payload);
      } else {
        note("the extended configuration " + name + " has no place in a payload; left out");
      }
    }
  }
}

void addProtocols(ZNNetworkServiceRef service, Json &payload) {
  auto protocols = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyProtocols(service));
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = elementAt<ZNNetworkProtocolRef>(protocols.get(), i);
    std::string type = textOf(ZNNetworkProtocolGetProtocolType(protocol));
    PVDictionaryRef configuration = ZNNetworkProtocolGetConfiguration(protocol);
    if (PVDictionaryGetCount(configuration) == 0) continue;
    if (type == "IPv4" || type == "Proxies") {
      payload[type] = portableConfiguration(configuration, payload);
    } else if (!PVEqual(ZNNetworkProtocolGetProtocolType(protocol), kJXVPNProtocolTypePayload)) {
      note("the " + type + " protocol's configuration has no place in a payload; left out");
    }
  }
}

void addSharedSecret(ZNNetworkServiceRef service, Json &payload) {
  auto secret = copySecret(service, Secret::sharedSecret);
  if (!secret) {
    note("no shared secret is stored for \"" + serviceName(service) + "\"; none exported");
    return;
  }
  auto exported = Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(secret.get()));
  if (!exported) throw Failure(Exit::failure, "cannot encode the shared secret");
  if (!payload.contains("IPSec")) payload["IPSec"] = Json::object();
  payload["IPSec"]["ExportedSharedSecret"] = jsonFromValue(exported.get());
}

Json exportPayload(ZNNetworkServiceRef service, bool withSecret) {
  Json payload = Json::object();
  std::string vendor = vendorType(service);
  payload["VPNType"] = textOf(JXVPNServiceGetType(service));
  if (!vendor.empty()) payload["VPNSubType"] = vendor;
  payload["UserDefinedName"] = serviceName(service);
  // The payload's identity, back at the top level where `install` reads it.
  Json identity =
      configurationJson(JXVPNServiceGetProtocolConfiguration(service, kJXVPNProtocolTypePayload));
  for (const char *key : {"PayloadIdentifier", "PayloadUUID", "PayloadOrganization"}) {
    if (identity.contains(key)) payload[key] = identity[key];
  }
  addProtocols(service, payload);
  addLayers(service, payload);
  if (withSecret) addSharedSecret(service, payload);
  return payload;
}

void writeFile(const std::string &path, const std::string &text, bool secret) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, secret ? 0600 : 0644);
  bool written =
      fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  int error = errno;
  if (fd >= 0 && ::close(fd) != 0) written = false;
  if (!written) throw Failure(Exit::failure, "cannot write " + path + ": " + std::strerror(error));
}

}  // namespace

void exportCommand(const GlobalOptions &options, const ExportArguments &arguments) {
  auto prefs = openStore(options);
  auto service = findService(prefs.get(), arguments.service);
  std::string text = exportPayload(service.get(), arguments.withSecret).dump(2) + "\n";
  if (arguments.outputPath.empty()) {
    std::fputs(text.c_str(), stdout);
  } else {
    writeFile(arguments.outputPath, text, arguments.withSecret);
  }
}

}  // namespace tarnwick
