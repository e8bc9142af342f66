// The library's exported constants. Each is an immortal string object; the
// on-demand key is one object under two names because the configuration-type
// classifier tells keys apart by identity.
#include "platform/values/object.hpp"
#include "tarnwick.h"

PV_DEFINE_CONSTANT_STRING(kJXVPNPayloadRootKey, "PayloadRoot")
PV_DEFINE_CONSTANT_STRING(kJXVPNPayloadCertificateUUIDKey, "PayloadCertificateUUID")
PV_DEFINE_CONSTANT_STRING(kJXVPNPayloadCertificateIdentityUUIDKey, "PayloadCertificateIdentityUUID")
PV_DEFINE_CONSTANT_STRING(kJXPayloadOrganizationKey, "PayloadOrganization")
PV_DEFINE_CONSTANT_STRING(kJXPayloadIdentifierKey, "PayloadIdentifier")

PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNTypeKey, "VPNType")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNSubTypeKey, "VPNSubType")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNVendorConfigKey, "VendorConfig")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNEncryptedIPSecSharedSecretKey, "IPSecSharedSecretObf")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNExportedIPSecSharedSecretKey, "ExportedSharedSecret")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetIPSecOnDemandSupported, "OnDemandSupported")
extern "C" {
PVStringRef kJXVPNPropNetVPNOnDemandSupported = &kJXVPNPropNetIPSecOnDemandSupported_object;
}
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPromptForPinKey, "PromptForVPNPIN")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeKey, "HTTPProxyType")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeNone, "None")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeAutomatic, "Automatic")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyTypeManual, "Manual")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey, "HTTPProxyAuthenticated")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyUsernameKey, "HTTPProxyUsername")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetProxiesHTTPProxyPasswordKey, "HTTPProxyPassword")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropActive, "_activeVPN")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNCertificateDataKey, "_certificateData")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNCertificatePassphraseKey, "_certificatePassphrase")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNProtocolTypePayload, "com.velmora.payload")
PV_DEFINE_CONSTANT_STRING_VARIABLE(kJXVPNPropNetPPPAuthEAPPluginRSA, "EAP-RSA")
