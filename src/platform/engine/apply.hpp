// Where the preferences store hands an apply to the engine.
#pragma once

#include "platform/engine/sync.hpp"
#include "platform/prefs/session.hpp"

namespace engine {

// Brings the engine in line with the store's committed services, once an
// apply has recorded its generation, under the store's lock; the report
// becomes the thread's last sync. Never throws: the engine never fails an
// apply. True when the engine is in line with the store.
bool applied(ZNPreferences &session, Depth depth) noexcept;

}  // namespace engine
