#include "platform/engine/apply.hpp"

#include <optional>

#include "platform/engine/report.hpp"
#include "platform/prefs/error.hpp"
#include "platform/prefs/tables.hpp"

namespace engine {

bool applied(ZNPreferences &session, Depth depth) noexcept {
  Report report;
  try {
    // The session's copy is the committed store unless it changed since or
    // another session committed after it; then the store is read afresh.
    std::optional<zn::Document> snapshot;
    zn::Document *document = &session.document;
    if (document->modified() || document->generation != zn::storedGeneration(session.db)) {
      document = &snapshot.emplace(zn::readSnapshot(session.db));
    }
    report = synchronize(*document, session.directory, depth);
  } catch (const zn::Failure &failure) {
    report.failure =
        std::string("the store's services cannot be read: ") + ZNErrorString(failure.code);
  } catch (...) {
    report.failure = "the engine could not be brought in line";
  }
  const bool inLine = report.failure.empty() && report.count(State::outOfDate) == 0;
  try {
    recordReport(std::move(report));
  } catch (...) {
    return false;
  }
  return inLine;
}

}  // namespace engine
