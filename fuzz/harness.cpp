#include "harness.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace fuzz {
namespace {

// The names the library and the installer look for, and values they
// compare with.
constexpr const char *kNames[] = {
    "VPNType", "VPNSubType", "VendorConfig", "PPP", "IPSec", "VPN", "EAP", "IPv4", "Proxies",
    "DNS", "L2TP", "PPTP", "UserDefinedName", "PayloadDisplayName", "PayloadIdentifier",
    "PayloadUUID", "PayloadOrganization", "PayloadCertificateUUID",
    "PayloadCertificateIdentityUUID", "PayloadRoot", "_certificateData",
    "_certificatePassphrase", "AuthName", "AuthPassword", "AuthPasswordEncryption",
    "AuthEAPPlugins", "AuthProtocol", "AuthenticationMethod", "SharedSecret",
    "SharedSecretEncryption", "IPSecSharedSecret", "IPSecSharedSecretEncryption",
    "ExportedSharedSecret", "IPSecSharedSecretObf", "XAuthName", "XAuthPassword",
    "XAuthPasswordEncryption", "XAuthEnabled", "LocalIdentifier", "LocalIdentifierType",
    "LocalCertificate", "RemoteAddress", "CommRemoteAddress", "HTTPProxyUsername",
    "HTTPProxyPassword", "HTTPProxyAuthenticated", "HTTPProxyType", "HTTPEnable", "HTTPProxy",
    "HTTPPort", "OnDemandEnabled", "OnDemandMatchDomainsAlways", "OnDemandMatchDomainsNever",
    "OnDemandSupported", "PromptForVPNPIN", "OverridePrimary", "com.velmora.payload",
    "Certificate", "Hybrid", "Prompt", "Coffer", "EAP-RSA", "None", "Manual", "Automatic",
    "KeyID", "_activeVPN", "com.example.vendor", ""};

}  // namespace

uint8_t Input::byte() {
  if (size_ == 0) return 0;
  --size_;
  return *data_++;
}

std::string Input::bytes(size_t most) {
  size_t length = std::min<size_t>({byte() % (most + 1), size_});
  std::string taken(reinterpret_cast<const char *>(data_), length);
  data_ += length;
  size_ -= length;
  return taken;
}

std::string Input::rest() { return bytes(size_); }

namespace {

pv::Ref<PVStringRef> arbitraryString(Input &in) {
  uint8_t choice = in.byte();
  if (choice < 200) {
    return pv::Ref<PVStringRef>::adopt(
        PVStringCreateWithCString(kNames[choice % std::size(kNames)]));
  }
  std::string text = in.bytes(32);
  // Bytes that are no UTF-8 make no string; a name stands in.
  auto string = pv::Ref<PVStringRef>::adopt(
      PVStringCreateWithBytes(reinterpret_cast<const uint8_t *>(text.data()),
                              static_cast<PVIndex>(text.size()), kPVStringEncodingUTF8));
  return string ? string : pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString("VPN"));
}

}  // namespace

pv::Ref<PVTypeRef> arbitraryValue(Input &in, int depth) {
  switch (in.byte() % (depth > 0 ? 8 : 6)) {
    case 0:
    case 1:
      return pv::Ref<PVTypeRef>::adopt(arbitraryString(in).release());
    case 2: {
      std::string bytes = in.bytes(64);
      return pv::Ref<PVTypeRef>::adopt(PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                                                    static_cast<PVIndex>(bytes.size())));
    }
    case 3: {
      int64_t number = static_cast<int8_t>(in.byte());
      if (in.byte() & 1) number = number << 40 | in.byte();
      return pv::Ref<PVTypeRef>::adopt(PVNumberCreateWithInt64(number));
    }
    case 4:
      return pv::Ref<PVTypeRef>::adopt(PVNumberCreateWithDouble(in.byte() / 7.0));
    case 5:
      return pv::Ref<PVTypeRef>::retain(in.byte() & 1 ? kPVBooleanTrue : kPVBooleanFalse);
    case 6: {
      auto array = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
      for (int n = in.byte() % 5; n > 0; --n) {
        PVArrayAppendValue(array.get(), arbitraryValue(in, depth - 1).get());
      }
      return pv::Ref<PVTypeRef>::adopt(array.release());
    }
    default:
      return pv::Ref<PVTypeRef>::adopt(arbitraryDictionary(in, depth - 1).release());
  }
}

pv::Ref<PVDictionaryRef> arbitraryDictionary(Input &in, int depth) {
  auto dictionary = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (int n = in.byte() % 10; n > 0 && !in.empty(); --n) {
    auto key = arbitraryString(in);
    PVDictionarySetValue(dictionary.get(), key.get(), arbitraryValue(in, depth).get());
  }
  return pv::Ref<PVDictionaryRef>::adopt(dictionary.release());
}

const std::string &scratchDirectory() {
  // Never destroyed: the exit handler below still needs it.
  static const std::string *const directory = [] {
    // No announcement, no VPN engine: the fuzzed process stays to itself.
    setenv("TARNWICK_ENGINE", "none", 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tarnwick-fuzz-bus", 1);
    std::string base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    if (const char *tmp = std::getenv("TARNWICK_FUZZ_TMP")) base = tmp;
    std::string pattern = base + "/tarnwick-fuzz-XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(scratchDirectory(), ignored);
    });
    return new std::string(pattern);
  }();
  return *directory;
}

}  // namespace fuzz
