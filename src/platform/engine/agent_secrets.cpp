#include "platform/engine/agent_secrets.hpp"

#include <openssl/crypto.h>

#include "platform/engine/mapping.hpp"
#include "platform/engine/name_uuid.hpp"
#include "platform/prefs/handles.hpp"

namespace engine {

SecretAnswer::~SecretAnswer() {
  for (auto &[name, secret] : secrets) OPENSSL_cleanse(secret.data(), secret.size());
}

namespace {

// Calls `found` with the session, the service and its mapping when one of
// the store's VPN services has the connection `uuid`; false otherwise.
template <typename Found>
bool withService(const std::string &directory, const std::string &uuid, Found found) {
  auto session = pv::Ref<ZNPreferencesRef>::adopt(zn::openSession(directory));
  // The UUID is a digest of the identifier: only the service it names is
  // decoded.
  for (auto &entry : session.get()->document.services) {
    zn::Service &service = entry.second.value;
    if (nameUuid(zn::text(service.id.get())) != uuid) continue;
    std::optional<ServiceView> view = vpnService(service);
    if (!view) return false;
    Mapping mapping = mapService(*view, VendorTable::load(directory), directory);
    if (!mapping.expressible()) return false;  // its connection is a leftover, about to go
    found(*session.get(), service, *view, mapping);
    return true;
  }
  return false;
}

}  // namespace

SecretAnswer answerSecrets(const std::string &directory, const std::string &uuid,
                           const CredentialSource &source) {
  SecretAnswer answer;
  answer.ours = withService(
      directory, uuid,
      [&](ZNPreferences &session, zn::Service &service, const ServiceView &view,
          const Mapping &mapping) {
        answer.service = view.name;
        auto handle = pv::Ref<ZNNetworkServiceRef>::adopt(new ZNNetworkService(session, service));
        for (const auto &[secret, credential] : mapping.secrets) {
          pv::Ref<PVStringRef> value = source(handle.get(), credential);
          if (value && PVStringGetLength(value.get()) > 0) {
            answer.secrets[secret] = PVStringGetCStringPtr(value.get());
          } else {
            answer.missing.push_back(secret);
          }
        }
      });
  return answer;
}

std::optional<std::string> serviceOf(const std::string &directory, const std::string &uuid) {
  std::optional<std::string> name;
  withService(directory, uuid,
              [&](ZNPreferences &, zn::Service &, const ServiceView &view, const Mapping &) {
                name = view.name;
              });
  return name;
}

}  // namespace engine
