#include "live_status.hpp"

#include "values.hpp"

namespace tarnwick {

const char *statusWord(int status) {
  switch (status) {
    case kZNNetworkConnectionConnecting:
      return "connecting";
    case kZNNetworkConnectionConnected:
      return "connected";
    case kZNNetworkConnectionDisconnecting:
      return "disconnecting";
    default:
      return "disconnected";
  }
}

std::map<std::string, std::string> liveStatusWords(
    const std::vector<Ref<ZNNetworkServiceRef>> &services) {
  std::vector<PVTypeRef> ids;
  for (const auto &service : services) ids.push_back(ZNNetworkServiceGetServiceID(service.get()));
  auto array = Ref<PVArrayRef>::adopt(PVArrayCreate(ids.data(), static_cast<PVIndex>(ids.size())));
  auto statuses = Ref<PVDictionaryRef>::adopt(ZNNetworkConnectionCopyStatuses(array.get()));
  std::map<std::string, std::string> words;
  for (PVTypeRef id : ids) {
    int64_t status = 0;
    PVTypeRef number = statuses ? PVDictionaryGetValue(statuses.get(), id) : nullptr;
    bool known =
        number && PVNumberGetValue(static_cast<PVNumberRef>(number), kPVNumberSInt64Type, &status);
    words[textOf(id)] = known ? statusWord(static_cast<int>(status)) : "unknown";
  }
  return words;
}

}  // namespace tarnwick
