// Generic-password items (one text secret each), PKCS #12 import and
// deletion by persistent reference: the library's only layer over the Coffer.
#include "credentials/coffer_items.hpp"

#include "tarnwick/platform/ref.hpp"

namespace {

using pv::Ref;

PVIndex lengthOf(PVStringRef string) { return string ? PVStringGetLength(string) : 0; }

}  // namespace

PVMutableDictionaryRef __JXCofferCreateQuery(PVStringRef service, PVStringRef account,
                                             PVStringRef label, PVStringRef description) noexcept {
  if (lengthOf(service) == 0) return nullptr;
  PVMutableDictionaryRef query = PVDictionaryCreateMutable();
  if (!query) return nullptr;
  PVDictionarySetValue(query, kVltClass, kVltClassGenericPassword);
  PVDictionarySetValue(query, kVltAttrService, service);
  if (lengthOf(account) != 0) PVDictionarySetValue(query, kVltAttrAccount, account);
  if (lengthOf(label) != 0) PVDictionarySetValue(query, kVltAttrLabel, label);
  if (lengthOf(description) != 0) PVDictionarySetValue(query, kVltAttrDescription, description);
  return query;
}

extern "C" {

PVStringRef JXCofferCopyValue(PVStringRef service, PVStringRef account, PVStringRef label,
                              PVStringRef description) noexcept {
  auto query = Ref<PVMutableDictionaryRef>::adopt(
      __JXCofferCreateQuery(service, account, label, description));
  if (!query) return nullptr;
  PVDictionarySetValue(query.get(), kVltReturnData, kPVBooleanTrue);
  PVTypeRef slot = nullptr;
  VltStatus status = VltItemCopyMatching(query.get(), &slot);
  query = {};
  if (!slot) return nullptr;
  auto data = Ref<PVDataRef>::adopt(static_cast<PVDataRef>(slot));
  if (status != kVltSuccess) return nullptr;
  return PVStringCreateWithBytes(PVDataGetBytePtr(data.get()), PVDataGetLength(data.get()),
                                 kPVStringEncodingUTF8);
}

PVTypeRef JXCofferSetValue(PVStringRef service, PVStringRef account, PVStringRef label,
                           PVStringRef description, PVStringRef value) noexcept {
  // An empty value neither stores nor deletes anything.
  if (lengthOf(value) == 0) return nullptr;
  auto query = Ref<PVMutableDictionaryRef>::adopt(
      __JXCofferCreateQuery(service, account, label, description));
  if (!query) return nullptr;
  auto data =
      Ref<PVDataRef>::adopt(PVStringCreateExternalRepresentation(value, kPVStringEncodingUTF8));
  auto present = Ref<PVStringRef>::adopt(JXCofferCopyValue(service, account, label, description));

  if (present) {
    if (!PVEqual(value, present.get())) {
      auto changes = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
      PVDictionarySetValue(changes.get(), kVltValueData, data.get());
      // Not looked at: the result is null on this path whatever happened.
      (void)VltItemUpdate(query.get(), changes.get());
    }
    return nullptr;
  }

  PVDictionarySetValue(query.get(), kVltAttrAccessible, kVltAttrAccessibleAfterFirstUnlock);
  PVDictionarySetValue(query.get(), kVltValueData, data.get());
  PVTypeRef slot = nullptr;
  if (VltItemAdd(query.get(), &slot) != kVltSuccess) return nullptr;
  return slot;
}

void JXCofferRemoveValue(PVStringRef service, PVStringRef account, PVStringRef label,
                         PVStringRef description) noexcept {
  auto query = Ref<PVMutableDictionaryRef>::adopt(
      __JXCofferCreateQuery(service, account, label, description));
  // Nothing to report: removal answers nothing, and an absent item is gone already.
  if (query) (void)VltItemDelete(query.get());
}

PVArrayRef JXCofferSetPKCS12Container(PVDataRef container, PVStringRef passphrase) noexcept {
  // The container is deliberately not tested: the import refuses a null one.
  if (!passphrase) return nullptr;
  const PVTypeRef optionKeys[] = {kVltImportExportPassphrase};
  const PVTypeRef optionValues[] = {passphrase};
  auto options = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(optionKeys, optionValues, 1));
  if (!options) return nullptr;
  PVArrayRef importedSlot = nullptr;
  VltStatus status = VltPKCS12Import(container, options.get(), &importedSlot);
  auto imported = Ref<PVArrayRef>::adopt(importedSlot);
  if (status != kVltSuccess) return nullptr;

  auto attributes = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  auto result = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  if (!attributes || !result) return nullptr;
  if (PVArrayGetCount(imported.get()) == 0) return nullptr;

  // Only the first identity is kept; any others in the container are ignored.
  auto first = static_cast<PVDictionaryRef>(PVArrayGetValueAtIndex(imported.get(), 0));
  PVTypeRef identity = PVDictionaryGetValue(first, kVltImportItemIdentity);
  auto trust = static_cast<VltTrustRef>(PVDictionaryGetValue(first, kVltImportItemTrust));
  PVIndex count = VltTrustGetCertificateCount(trust);
  if (count < 1) return result.release();

  for (PVIndex i = 0; i < count; ++i) {
    // The identity stands in for the leaf certificate at index 0.
    PVTypeRef object = i == 0 ? identity : VltTrustGetCertificateAtIndex(trust, i);
    PVDictionarySetValue(attributes.get(), kVltValueRef, object);
    PVDictionarySetValue(attributes.get(), kVltReturnPersistentRef, kPVBooleanTrue);
    PVDictionarySetValue(attributes.get(), kVltAttrAccessible, kVltAttrAccessibleAfterFirstUnlock);
    PVTypeRef slot = nullptr;
    status = VltItemAdd(attributes.get(), &slot);
    if (status == kVltErrorDuplicateItem) {
      // Already stored: look up the stored item's reference instead.
      PVDictionaryRemoveValue(attributes.get(), kVltAttrAccessible);
      status = VltItemCopyMatching(attributes.get(), &slot);
    }
    auto reference = Ref<PVTypeRef>::adopt(slot);
    if (status == kVltSuccess) PVArrayAppendValue(result.get(), reference.get());
  }
  return result.release();
}

Boolean JXCofferRemoveWithPersistentID(PVDataRef persistentReference) noexcept {
  // The reference is deliberately not tested: the Coffer refuses a null one.
  const PVTypeRef keys[] = {kVltValuePersistentRef};
  const PVTypeRef values[] = {persistentReference};
  auto query = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
  if (!query) return false;
  return VltItemDelete(query.get()) == kVltSuccess;
}

}  // extern "C"
