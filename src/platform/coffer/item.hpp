// The Coffer's item model: what one stored item holds, what a query asks
// for and what an update changes, independent of how they are stored.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "platform/coffer/objects.hpp"
#include "tarnwick/platform/coffer.h"

namespace vlt {

enum class ItemClass { GenericPassword, Certificate, Identity };

// The four string attributes, in this order everywhere.
enum StringAttribute { kService, kAccount, kLabel, kDescription, kStringAttributeCount };
using StringAttributes = std::array<std::optional<std::string>, kStringAttributeCount>;

struct Item {
  ItemClass itemClass = ItemClass::GenericPassword;
  StringAttributes strings;
  std::string accessible;           // text of an accessibility constant
  std::string data;                 // a generic password's secret
  std::string certificate;          // DER, certificate and identity items
  std::string privateKey;           // PKCS #8 DER, identity items
  std::string persistentReference;  // issued when the item is stored
  std::string uniquenessKey;
};

// Everything present must equal the item's; what is absent matches anything.
struct Query {
  std::optional<ItemClass> itemClass;
  StringAttributes strings;
  std::optional<std::string> accessible;
  std::optional<std::string> certificateKey;  // the uniqueness key of kVltValueRef's certificate
  std::optional<std::string> persistentReference;
  bool returnData = false;
  bool returnPersistentReference = false;
  bool returnAttributes = false;
};

struct Changes {
  StringAttributes strings;
  std::optional<std::string> accessible;
  std::optional<std::string> data;
};

// The class constant, and its text as stored.
PVStringRef classConstant(ItemClass itemClass);
[[nodiscard]] std::optional<ItemClass> classFromText(std::string_view text);
// The accessibility constant of that text, NULL for any other text.
PVStringRef accessibilityConstant(std::string_view text);

// Two items of one class with the same key cannot both be stored: a generic
// password is keyed by service and account, a certificate or an identity by
// its certificate's issuer and serial number.
std::string passwordKey(const StringAttributes &strings);
std::string certificateKey(const VltCertificate &certificate);

}  // namespace vlt
