// Class and accessibility texts, and the uniqueness keys of items.
#include "platform/coffer/item.hpp"

#include <cstdint>

namespace vlt {

namespace {

// Length-prefixed, with absence distinct from the empty text, so that no
// two different field lists encode alike.
void appendField(std::string &key, const std::optional<std::string> &field) {
  if (!field) {
    key += '\0';
    return;
  }
  key += '\1';
  uint32_t size = static_cast<uint32_t>(field->size());
  for (int shift = 24; shift >= 0; shift -= 8) key += static_cast<char>((size >> shift) & 0xFF);
  key += *field;
}

}  // namespace

PVStringRef classConstant(ItemClass itemClass) {
  switch (itemClass) {
    case ItemClass::GenericPassword:
      return kVltClassGenericPassword;
    case ItemClass::Certificate:
      return kVltClassCertificate;
    case ItemClass::Identity:
      return kVltClassIdentity;
  }
  return nullptr;
}

std::optional<ItemClass> classFromText(std::string_view text) {
  for (ItemClass c : {ItemClass::GenericPassword, ItemClass::Certificate, ItemClass::Identity}) {
    if (text == PVStringGetCStringPtr(classConstant(c))) return c;
  }
  return std::nullopt;
}

PVStringRef accessibilityConstant(std::string_view text) {
  for (PVStringRef c : {kVltAttrAccessibleAfterFirstUnlock, kVltAttrAccessibleWhenUnlocked}) {
    if (text == PVStringGetCStringPtr(c)) return c;
  }
  return nullptr;
}

std::string passwordKey(const StringAttributes &strings) {
  std::string key;
  appendField(key, strings[kService]);
  appendField(key, strings[kAccount]);
  return key;
}

std::string certificateKey(const VltCertificate &certificate) {
  std::string key;
  appendField(key, certificate.issuerName);
  appendField(key, certificate.serialNumber);
  return key;
}

}  // namespace vlt
