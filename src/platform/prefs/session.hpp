// A preferences session: a snapshot of one store, the changes made to it
// since, the store's lock and a connection to its database.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/prefs/database.hpp"
#include "platform/prefs/files.hpp"
#include "platform/prefs/model.hpp"
#include "platform/values/object.hpp"
#include "tarnwick/platform/prefs.h"

struct ZNPreferences : pv::PVObject {
  ZNPreferences(std::string directory, zn::LockFile lock, zn::Database db, zn::Document document);
  ~ZNPreferences() override;

  // Lookups in the session's copy; throw kZNStatusNoSuchObject for what it
  // does not (or no longer) hold.
  zn::Service &service(std::string_view id);
  zn::Set &set(std::string_view id);

  // Marks an object changed, for the next commit to write.
  void serviceChanged(std::string_view id);
  void setChanged(std::string_view id);

  // A new handle of the layer at `depth` (0 is the outermost) of a
  // service's chain, which the caller keeps where it finds it again: the
  // service its outer layer, each layer the one below it. The session owns
  // it and hands it out borrowed; the handle does not retain the session
  // (that would be a cycle), so the session detaches every such handle when
  // it goes away.
  ZNNetworkInterfaceRef layerHandle(zn::Service &service, size_t depth);
  // Hands each service's layer handles on to the same service in `fresh`,
  // the copy that replaces this one: a layer keeps its handle for the
  // session's life.
  void carryLayersTo(zn::Document &fresh) noexcept;

  const std::string directory;
  zn::LockFile lock;
  zn::Database db;
  zn::Document document;  // its generation is the one last read or written
  // Changes whenever a service may have left the copy (a removal, a
  // synchronize): service handles look their service up again then.
  uint64_t epoch = 0;
  // The generation this session's last apply brought the engine in line
  // with, and the engine report that apply recorded; generation 0 for none.
  struct {
    int64_t generation = 0;
    uint64_t report = 0;
  } inLine;

 private:
  void releaseLayerHandles() noexcept;

  std::vector<ZNNetworkInterfaceRef> layers_;  // every one made
};

namespace zn {

// A session on the store in `directory`, which must exist. Throws a
// Failure with the reason it cannot be opened.
ZNPreferences *openSession(const std::string &directory);

// Finds a handle's service by identifier once, and again only after a
// service may have left the session, so that walking many handles does no
// lookups.
class ServiceLocator {
 public:
  ServiceLocator() = default;
  // Starts out knowing where the service is.
  ServiceLocator(Service &service, uint64_t epoch) : found_(&service), epoch_(epoch) {}

  // The identifier's text is read only on a miss: walking many handles then
  // touches nothing but the services themselves.
  Service &locate(ZNPreferences &session, PVStringRef id) const {
    if (!found_ || epoch_ != session.epoch) {
      found_ = &session.service(text(id));
      epoch_ = session.epoch;
    }
    return *found_;
  }

 private:
  mutable Service *found_ = nullptr;
  mutable uint64_t epoch_ = 0;
};

}  // namespace zn
