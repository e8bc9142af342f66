// The system log: formats a message (%@ included) and hands it to syslog(3).
// A test capture sees every message first, with its level.
#include <syslog.h>

#include <cstdarg>

#include "platform/testing/capture.hpp"
#include "tarnwick/platform/log.h"
#include "tarnwick/platform/ref.hpp"

namespace {

// The level syslog gets for a message written without one.
constexpr int kDefaultLevel = LOG_NOTICE;

void write(int level, const char *format, va_list args) noexcept {
  if (!format) return;
  auto message = pv::Ref<PVStringRef>::adopt(PVStringCreateWithFormatAndArguments(format, args));
  if (!message) return;
  const char *text = PVStringGetCStringPtr(message.get());
  pt::captureLog(level, text);
  syslog(level == pt::kNoLevel ? kDefaultLevel : level, "%s", text);
}

}  // namespace

extern "C" {

void SysLogWrite(int level, const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  write(level & LOG_PRIMASK, format, args);
  va_end(args);
}

void SysLogWriteDefault(const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  write(pt::kNoLevel, format, args);
  va_end(args);
}

}  // extern "C"
