// Parsing the Coffer's dictionaries into items, queries and changes, and
// building what a lookup hands back.
#include "platform/coffer/dictionary.hpp"

#include <vector>

#include "platform/coffer/objects.hpp"

namespace vlt {

namespace {

enum class Field {
  Class,
  Service,
  Account,
  Label,
  Description,
  Accessible,
  ValueData,
  ValueRef,
  ValuePersistentRef,
  ReturnData,
  ReturnPersistentRef,
  ReturnAttributes,
};

std::optional<Field> fieldOf(PVTypeRef key) {
  const std::pair<PVStringRef, Field> fields[] = {
      {kVltClass, Field::Class},
      {kVltAttrService, Field::Service},
      {kVltAttrAccount, Field::Account},
      {kVltAttrLabel, Field::Label},
      {kVltAttrDescription, Field::Description},
      {kVltAttrAccessible, Field::Accessible},
      {kVltValueData, Field::ValueData},
      {kVltValueRef, Field::ValueRef},
      {kVltValuePersistentRef, Field::ValuePersistentRef},
      {kVltReturnData, Field::ReturnData},
      {kVltReturnPersistentRef, Field::ReturnPersistentRef},
      {kVltReturnAttributes, Field::ReturnAttributes},
  };
  for (const auto &[name, field] : fields) {
    if (PVEqual(key, name)) return field;
  }
  return std::nullopt;
}

std::optional<StringAttribute> stringAttributeOf(Field field) {
  switch (field) {
    case Field::Service:
      return kService;
    case Field::Account:
      return kAccount;
    case Field::Label:
      return kLabel;
    case Field::Description:
      return kDescription;
    default:
      return std::nullopt;
  }
}

bool isKind(PVTypeRef value, PVTypeID kind) { return PVGetTypeID(value) == kind; }

std::optional<std::string> textOf(PVTypeRef value) {
  if (!isKind(value, PVStringGetTypeID())) return std::nullopt;
  auto string = static_cast<PVStringRef>(value);
  return std::string(PVStringGetCStringPtr(string),
                     static_cast<size_t>(PVStringGetUTF8Length(string)));
}

std::optional<std::string> bytesOf(PVTypeRef value) {
  if (!isKind(value, PVDataGetTypeID())) return std::nullopt;
  auto data = static_cast<PVDataRef>(value);
  size_t length = static_cast<size_t>(PVDataGetLength(data));
  return length ? std::string(reinterpret_cast<const char *>(PVDataGetBytePtr(data)), length)
                : std::string();
}

std::optional<bool> flagOf(PVTypeRef value) {
  if (!isKind(value, PVBooleanGetTypeID())) return std::nullopt;
  return PVBooleanGetValue(static_cast<PVBooleanRef>(value)) != 0;
}

std::optional<ItemClass> classOf(PVTypeRef value) {
  for (ItemClass c : {ItemClass::GenericPassword, ItemClass::Certificate, ItemClass::Identity}) {
    if (PVEqual(value, classConstant(c))) return c;
  }
  return std::nullopt;
}

std::optional<std::string> accessibilityOf(PVTypeRef value) {
  std::optional<std::string> text = textOf(value);
  if (!text || !accessibilityConstant(*text)) return std::nullopt;
  return text;
}

// The certificate an object stands for, and the class of its item.
const VltCertificate *objectCertificate(PVTypeRef value, ItemClass &itemClass) {
  if (const VltCertificate *certificate = asCertificate(value)) {
    itemClass = ItemClass::Certificate;
    return certificate;
  }
  if (const VltIdentity *identity = asIdentity(value)) {
    itemClass = ItemClass::Identity;
    return identity->certificate.get();
  }
  return nullptr;
}

// Calls `visit(field, value)` for each entry; stops at the first failure.
template <typename Visit>
VltStatus forEachEntry(PVDictionaryRef dictionary, Visit visit) {
  if (!isKind(dictionary, PVDictionaryGetTypeID())) return kVltErrorParam;
  auto count = static_cast<size_t>(PVDictionaryGetCount(dictionary));
  std::vector<PVTypeRef> keys(count), values(count);
  PVDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  for (size_t i = 0; i < count; ++i) {
    std::optional<Field> field = fieldOf(keys[i]);
    if (!field || !visit(*field, values[i])) return kVltErrorParam;
  }
  return kVltSuccess;
}

// Sets a string attribute or the accessibility; false for any other field
// or a value of the wrong kind.
bool setAttribute(Field field, PVTypeRef value, StringAttributes &strings,
                  std::optional<std::string> &accessible) {
  if (field == Field::Accessible) {
    accessible = accessibilityOf(value);
    return accessible.has_value();
  }
  std::optional<StringAttribute> attribute = stringAttributeOf(field);
  if (!attribute) return false;
  strings[*attribute] = textOf(value);
  return strings[*attribute].has_value();
}

PVDataRef createData(const std::string &bytes) {
  return PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                      static_cast<PVIndex>(bytes.size()));
}

// The item's certificate or identity, rebuilt from what is stored.
PVTypeRef createObject(const Item &item) {
  auto certificate = pv::Ref<VltCertificateRef>::adopt(createCertificate(item.certificate));
  if (!certificate || item.itemClass == ItemClass::Certificate) return certificate.release();
  return new VltIdentity(std::move(certificate), item.privateKey);
}

PVTypeRef createAttributes(const Item &item, const Query &query) {
  auto dictionary = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  if (!dictionary) return nullptr;
  PVMutableDictionaryRef d = dictionary.get();
  PVDictionarySetValue(d, kVltClass, classConstant(item.itemClass));
  const PVStringRef keys[kStringAttributeCount] = {kVltAttrService, kVltAttrAccount, kVltAttrLabel,
                                                   kVltAttrDescription};
  for (int i = 0; i < kStringAttributeCount; ++i) {
    if (!item.strings[i]) continue;
    auto text = pv::Ref<PVStringRef>::adopt(PVStringCreateWithBytes(
        reinterpret_cast<const uint8_t *>(item.strings[i]->data()),
        static_cast<PVIndex>(item.strings[i]->size()), kPVStringEncodingUTF8));
    PVDictionarySetValue(d, keys[i], text.get());
  }
  PVDictionarySetValue(d, kVltAttrAccessible, accessibilityConstant(item.accessible));
  if (item.itemClass != ItemClass::GenericPassword) {
    auto object = pv::Ref<PVTypeRef>::adopt(createObject(item));
    PVDictionarySetValue(d, kVltValueRef, object.get());
  }
  if (query.returnData) {
    auto data = pv::Ref<PVDataRef>::adopt(
        createData(item.itemClass == ItemClass::GenericPassword ? item.data : item.certificate));
    PVDictionarySetValue(d, kVltValueData, data.get());
  }
  if (query.returnPersistentReference) {
    auto reference = pv::Ref<PVDataRef>::adopt(createData(item.persistentReference));
    PVDictionarySetValue(d, kVltValuePersistentRef, reference.get());
  }
  return dictionary.release();
}

}  // namespace

VltStatus parseQuery(PVDictionaryRef dictionary, bool allowReturns, Query &query) {
  std::optional<ItemClass> objectClass;
  VltStatus status = forEachEntry(dictionary, [&](Field field, PVTypeRef value) {
    switch (field) {
      case Field::Class:
        query.itemClass = classOf(value);
        return query.itemClass.has_value();
      case Field::ValueRef: {
        ItemClass itemClass{};
        const VltCertificate *certificate = objectCertificate(value, itemClass);
        if (!certificate) return false;
        objectClass = itemClass;
        query.certificateKey = certificateKey(*certificate);
        return true;
      }
      case Field::ValuePersistentRef:
        query.persistentReference = bytesOf(value);
        return query.persistentReference.has_value();
      case Field::ReturnData:
      case Field::ReturnPersistentRef:
      case Field::ReturnAttributes: {
        std::optional<bool> flag = flagOf(value);
        if (!allowReturns || !flag) return false;
        bool &requested = field == Field::ReturnData            ? query.returnData
                          : field == Field::ReturnPersistentRef ? query.returnPersistentReference
                                                                : query.returnAttributes;
        requested = *flag;
        return true;
      }
      default:
        return setAttribute(field, value, query.strings, query.accessible);
    }
  });
  if (status) return status;
  // The object decides the class; a query naming another one is ill-formed.
  if (objectClass) {
    if (query.itemClass && *query.itemClass != *objectClass) return kVltErrorParam;
    query.itemClass = objectClass;
  }
  return kVltSuccess;
}

VltStatus parseNewItem(PVDictionaryRef dictionary, Item &item, bool &returnPersistentReference) {
  std::optional<ItemClass> declaredClass;
  std::optional<std::string> accessible;
  std::optional<std::string> data;
  PVTypeRef object = nullptr;
  returnPersistentReference = false;
  VltStatus status = forEachEntry(dictionary, [&](Field field, PVTypeRef value) {
    switch (field) {
      case Field::Class:
        declaredClass = classOf(value);
        return declaredClass.has_value();
      case Field::ValueData:
        data = bytesOf(value);
        return data.has_value();
      case Field::ValueRef:
        object = value;
        return true;
      case Field::ReturnPersistentRef: {
        std::optional<bool> flag = flagOf(value);
        returnPersistentReference = flag.value_or(false);
        return flag.has_value();
      }
      default:
        return setAttribute(field, value, item.strings, accessible);
    }
  });
  if (status) return status;
  item.accessible = accessible.value_or(PVStringGetCStringPtr(kVltAttrAccessibleWhenUnlocked));

  if (!object) {
    // Without an object only a generic password can be made.
    if (declaredClass != ItemClass::GenericPassword) return kVltErrorParam;
    item.itemClass = ItemClass::GenericPassword;
    item.data = data.value_or(std::string());
    item.uniquenessKey = passwordKey(item.strings);
    return kVltSuccess;
  }
  ItemClass objectClass{};
  const VltCertificate *certificate = objectCertificate(object, objectClass);
  if (!certificate || data || (declaredClass && *declaredClass != objectClass)) {
    return kVltErrorParam;
  }
  item.itemClass = objectClass;
  item.certificate = certificate->der;
  if (const VltIdentity *identity = asIdentity(object)) item.privateKey = identity->privateKey;
  item.uniquenessKey = certificateKey(*certificate);
  return kVltSuccess;
}

VltStatus parseChanges(PVDictionaryRef dictionary, Changes &changes) {
  return forEachEntry(dictionary, [&](Field field, PVTypeRef value) {
    if (field == Field::ValueData) {
      changes.data = bytesOf(value);
      return changes.data.has_value();
    }
    return setAttribute(field, value, changes.strings, changes.accessible);
  });
}

PVTypeRef createResult(const Item &item, const Query &query) {
  if (query.returnAttributes || (query.returnData && query.returnPersistentReference)) {
    return createAttributes(item, query);
  }
  if (query.returnData) {
    return createData(item.itemClass == ItemClass::GenericPassword ? item.data : item.certificate);
  }
  return createData(item.persistentReference);
}

}  // namespace vlt
