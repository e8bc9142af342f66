// The library's exported constants. Each is an immortal string object; the
// on-demand key is one object under two names because the configuration-type
// classifier tells keys apart by identity.
#include "tarnwick.h"
#include "tarnwick/platform/constant_string.hpp"

TW_DEFINE_CONSTANT_STRING(kJXVPNPayloadRootKey, "PayloadRoot")
TW_DEFINE_CONSTANT_STRING(kJXVPNPayloadCertificateUUIDKey, "PayloadCertificateUUID")
TW_DEFINE_CONSTANT_STRING(kJXVPNPayloadCertificateIdentityUUIDKey, "PayloadCertificateIdentityUUID")
TW_DEFINE_CONSTANT_STRING(kJXPayloadOrganizationKey, "PayloadOrganization")
TW_DEFINE_CONSTANT_STRING(kJXPayloadIdentifierKey, "PayloadIdentifier")

TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNTypeKey, "VPNType")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNSubTypeKey, "VPNSubType")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNVendorConfigKey, "VendorConfig")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNEncryptedIPSecSharedSecretKey, "IPSecSharedSecretObf")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNExportedIPSecSharedSecretKey, "ExportedSharedSecret")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetIPSecOnDemandSupported, "OnDemandSupported")
extern "C" {
PVStringRef kJXVPNPropNetVPNOnDemandSupported = kJXVPNPropNetIPSecOnDemandSupported;
}
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPromptForPinKey, "PromptForVPNPIN")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeKey, "HTTPProxyType")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeNone, "None")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeAutomatic, "Automatic")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeManual, "Manual")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey, "HTTPProxyAuthenticated")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyUsernameKey, "HTTPProxyUsername")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyPasswordKey, "HTTPProxyPassword")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropActive, "_activeVPN")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNCertificateDataKey, "_certificateData")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNCertificatePassphraseKey, "_certificatePassphrase")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNProtocolTypePayload, "com.velmora.payload")
TW_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetPPPAuthEAPPluginRSA, "EAP-RSA")
