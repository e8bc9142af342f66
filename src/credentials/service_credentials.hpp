// How a service's credentials are named in the Coffer. Not part of the
// public interface.
#pragma once

#include "tarnwick.h"

TW_EXTERN_C_BEGIN

// Names the Coffer item of the service's password of `type`; every type
// other than kJXVPNPasswordTypeProxy is the account password. All four
// slots must be given, set to NULL by the caller: a slot the naming does
// not fill stays NULL, and a service without a service type fills none.
// Ownership: the item service is a copy (the caller releases it: it may be
// made for the call); account, label and description are borrowed from the
// session or are constants.
void __JXVPNServiceGetCofferParameters(ZNNetworkServiceRef service, JXVPNPasswordType type,
                                       PVStringRef *outItemService, PVStringRef *outAccount,
                                       PVStringRef *outLabel,
                                       PVStringRef *outDescription) TW_NOEXCEPT;

TW_EXTERN_C_END
