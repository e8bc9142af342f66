// A preferences session: an open, in-memory copy of one store.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "platform/prefs/files.hpp"
#include "platform/prefs/model.hpp"
#include "platform/values/object.hpp"
#include "tarnwick/platform/prefs.h"

struct ZNPreferences : pv::PVObject {
  ZNPreferences(std::string directory, zn::LockFile lock, zn::Document document);
  ~ZNPreferences() override;

  // Lookups in the session's copy; throw kZNStatusNoSuchObject for what it
  // does not (or no longer) hold.
  zn::Service &service(std::string_view id);
  zn::Set &set(std::string_view id);

  // Marks the copy changed since it was read or committed.
  void changed();

  // The handle of the layer at `depth` (0 is the outermost) of a service's
  // chain. The session owns it and hands it out borrowed; the handle does
  // not retain the session (that would be a cycle), so the session detaches
  // every such handle when it goes away.
  ZNNetworkInterfaceRef layerHandle(const zn::StringRef &serviceId, size_t depth);

  const std::string directory;
  zn::LockFile lock;
  zn::Document document;  // its generation is the one last read or written
  bool modified = false;

 private:
  void releaseLayerHandles() noexcept;

  std::map<std::pair<std::string, size_t>, ZNNetworkInterfaceRef> layers_;
};

namespace zn {

std::string storePath(const std::string &directory, const char *name);
inline constexpr char kDocumentName[] = "preferences.json";
inline constexpr char kLockName[] = "preferences.lock";
inline constexpr char kAppliedName[] = "applied.json";

}  // namespace zn
