// The Coffer item layer's internal helper.
#pragma once

#include "tarnwick.h"

// The generic-password query for the four strings: class and service always,
// account, label and description only when present and not empty. NULL when
// the service is null or empty. Ownership: create.
[[nodiscard]] PVMutableDictionaryRef __JXCofferCreateQuery(PVStringRef service, PVStringRef account,
                                             PVStringRef label, PVStringRef description) noexcept;
