// Configuration access shared inside the library: the two key classifiers
// and the chain walk. Not part of the public interface.
#pragma once

#include "tarnwick.h"

TW_EXTERN_C_BEGIN

// The configuration type of the layer that holds `key`, or NULL. Keys are
// matched by identity: only the library's and the platform's key constants
// themselves are recognised. Ownership: get (a constant).
PVStringRef __JXVPNGetConfigurationTypeFromKey(PVStringRef key) TW_NOEXCEPT;

// The protocol type of the protocol that holds `key`, or NULL. Keys are
// matched by equal text. Ownership: get (a constant).
PVStringRef __JXVPNGetProtocolConfigurationTypeFromKey(PVStringRef key) TW_NOEXCEPT;

// Finds the layer of `configurationType` in the service's interface chain:
// the first layer from the top of that type, the outer interface for a NULL
// type, or else the outer interface's extended configuration under the
// type (`outExtended` true). Each out-argument is optional; everything
// handed out is borrowed from the session.
void __JXVPNServiceGetInterfaceAndConfiguration(ZNNetworkServiceRef service,
                                                PVStringRef configurationType,
                                                ZNNetworkInterfaceRef *outInterface,
                                                PVDictionaryRef *outConfiguration,
                                                Boolean *outExtended) TW_NOEXCEPT;

TW_EXTERN_C_END
