// What the log and the notification centres hand to the testing interface's
// capture (tarnwick/platform/testing.h). Each call does nothing unless a
// test started a capture.
#pragma once

#include "tarnwick/platform/testing.h"

namespace pt {

// The level recorded for a message written without one.
inline constexpr int kNoLevel = kPTNoLevel;

void captureLog(int level, const char *text);
void captureNotification(const char *name, bool systemWide);

}  // namespace pt
