// export: a service as a payload that `install` accepts, so that a
// configuration moves between devices. What only makes sense on this
// device stays behind: the Coffer mark, the persistent reference of the
// client identity, the passwords. The shared secret comes along in its
// exported encoding, on request only.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "commands.hpp"
#include "credentials.hpp"
#include "describe.hpp"
#include "failure.hpp"
#include "output.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

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
      note("the client identity stays in this device's Coffer: add \"_certificateData\" and "
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

// Written beside the file and renamed over it: the file is whole or not
// there, made afresh with the owner's mode alone when it holds a secret,
// and a link at the path is replaced, never followed.
void writeFile(const std::string &path, const std::string &text, bool secret) {
  std::filesystem::path target(path);
  std::filesystem::path folder = target.has_parent_path() ? target.parent_path() : ".";
  std::string temporary = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
  int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) throw Failure(Exit::failure, "cannot write " + path + ": " + std::strerror(errno));
  mode_t mask = umask(0);
  umask(mask);
  bool written = fchmod(fd, secret ? 0600 : 0666 & ~mask) == 0;
  for (size_t done = 0; written && done < text.size();) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    written = n > 0;
    if (written) done += static_cast<size_t>(n);
  }
  written = written && fsync(fd) == 0;
  int error = errno;
  if (::close(fd) != 0 && written) {
    written = false;
    error = errno;
  }
  if (written && std::rename(temporary.c_str(), path.c_str()) != 0) {
    written = false;
    error = errno;
  }
  if (!written) {
    ::unlink(temporary.c_str());
    throw Failure(Exit::failure, "cannot write " + path + ": " + std::strerror(error));
  }
}

}  // namespace

void exportCommand(const GlobalOptions &options, const ExportArguments &arguments) {
  auto prefs = openStore(options, Access::existing);
  auto service = findService(prefs.get(), arguments.service);
  std::string text = exportPayload(service.get(), arguments.withSecret).dump(2) + "\n";
  if (arguments.outputPath.empty()) {
    emit(text);
    return;
  }
  writeFile(arguments.outputPath, text, arguments.withSecret);
  if (options.json) {
    printJson({{"service", summaryJson(summarize(service.get()))}, {"file", arguments.outputPath}});
  }
}

}  // namespace tarnwick
