// The engine's public operations (tarnwick/platform/engine.h).
#include "tarnwick/platform/engine.h"

#include "platform/engine/apply.hpp"
#include "platform/engine/choice.hpp"
#include "platform/prefs/handles.hpp"
#include "platform/prefs/tables.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

void setNumber(PVMutableDictionaryRef dictionary, const char *key, int64_t value) {
  auto name = pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString(key));
  auto number = pv::Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(value));
  PVDictionarySetValue(dictionary, name.get(), number.get());
}

}  // namespace

extern "C" {

const char *ZNEngineGetName(void) noexcept {
  try {
    return engine::engineName(engine::chooseEngine().kind);
  } catch (...) {
    return engine::engineName(engine::EngineKind::none);
  }
}

Boolean ZNEngineApply(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ScopedLock locked(session.lock);
    zn::recordApplied(session.db);
    engine::applied(session, engine::Depth::thorough);
    return true;
  });
}

PVDictionaryRef ZNEngineCopyReport(void) noexcept {
  try {
    return engine::takeReport();
  } catch (...) {
    return nullptr;
  }
}

PVDictionaryRef ZNEngineCopyStatus(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, nullptr, [&]() -> PVDictionaryRef {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::Document document = zn::readSnapshot(session.db);
    const int64_t applied = zn::appliedGeneration(session.db);
    engine::Report report = engine::inspect(document, session.directory);
    auto status = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(
        pv::Ref<PVDictionaryRef>::adopt(report.createDictionary(engine::Report::status)).get()));
    setNumber(status.get(), "Generation", document.generation);
    setNumber(status.get(), "AppliedGeneration", applied);
    return status.release();
  });
}

}  // extern "C"
