// A connection's settings in a D-Bus message (a{sa{sv}}), both ways: what
// the settings service is sent and answers, and what a secret agent is
// asked about and answers with.
#pragma once

#include <systemd/sd-bus.h>

#include "platform/engine/bus.hpp"
#include "platform/engine/settings.hpp"

namespace engine {

void appendSettings(sd_bus_message *m, const ConnectionSettings &connection);

// Reads the settings at the message's read position. Values of types
// Tarnwick never writes are skipped.
ConnectionSettings readSettings(sd_bus_message *m);

}  // namespace engine
