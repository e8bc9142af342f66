// The Coffer's keys and values. Each is its own immortal object; their text
// is what the database stores for classes and accessibility.
#include "platform/values/object.hpp"
#include "tarnwick/platform/coffer.h"

PV_DEFINE_CONSTANT_STRING(kVltClass, "class")
PV_DEFINE_CONSTANT_STRING(kVltClassGenericPassword, "generic-password")
PV_DEFINE_CONSTANT_STRING(kVltClassCertificate, "certificate")
PV_DEFINE_CONSTANT_STRING(kVltClassIdentity, "identity")
PV_DEFINE_CONSTANT_STRING(kVltAttrService, "service")
PV_DEFINE_CONSTANT_STRING(kVltAttrAccount, "account")
PV_DEFINE_CONSTANT_STRING(kVltAttrLabel, "label")
PV_DEFINE_CONSTANT_STRING(kVltAttrDescription, "description")
PV_DEFINE_CONSTANT_STRING(kVltAttrAccessible, "accessible")
PV_DEFINE_CONSTANT_STRING(kVltAttrAccessibleAfterFirstUnlock, "after-first-unlock")
PV_DEFINE_CONSTANT_STRING(kVltAttrAccessibleWhenUnlocked, "when-unlocked")
PV_DEFINE_CONSTANT_STRING(kVltValueData, "value-data")
PV_DEFINE_CONSTANT_STRING(kVltValueRef, "value-ref")
PV_DEFINE_CONSTANT_STRING(kVltValuePersistentRef, "value-persistent-ref")
PV_DEFINE_CONSTANT_STRING(kVltReturnData, "return-data")
PV_DEFINE_CONSTANT_STRING(kVltReturnPersistentRef, "return-persistent-ref")
PV_DEFINE_CONSTANT_STRING(kVltReturnAttributes, "return-attributes")
PV_DEFINE_CONSTANT_STRING(kVltImportExportPassphrase, "passphrase")
PV_DEFINE_CONSTANT_STRING(kVltImportItemIdentity, "import-identity")
PV_DEFINE_CONSTANT_STRING(kVltImportItemTrust, "import-trust")
