// The content of a store: what a session holds in memory and a commit
// writes. Property values in it are immutable and shared with callers
// through Get operations, so a value is replaced, never changed in place.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tarnwick/platform/ref.hpp"

namespace zn {

using StringRef = pv::Ref<PVStringRef>;
using DictionaryRef = pv::Ref<PVDictionaryRef>;

std::string_view text(PVStringRef string);
// A new string for `text` (which must be UTF-8), held.
StringRef makeString(std::string_view text);
// An immutable copy of `string` (the string itself when it is immutable).
StringRef copyString(PVStringRef string);

struct Layer {
  StringRef type;
  DictionaryRef configuration;                    // null when none
  std::map<std::string, DictionaryRef> extended;  // by entity type
};

struct Protocol {
  StringRef type;
  DictionaryRef configuration;  // null when none
};

struct Service {
  StringRef id;
  StringRef name;  // null when unnamed
  bool enabled = true;
  std::vector<Layer> chain;         // outermost first, never empty
  std::vector<Protocol> protocols;  // in the order they were added

  Protocol *findProtocol(std::string_view type);
};

struct Set {
  StringRef id;
  StringRef name;                     // null when unnamed
  std::vector<std::string> services;  // member identifiers, in order
  std::string selected;               // identifier of the selected VPN service, or empty
};

struct Document {
  int64_t generation = 0;
  std::vector<Set> sets;
  std::string currentSet;  // empty when no set is current
  std::vector<Service> services;

  Service *findService(std::string_view id);
  Set *findSet(std::string_view id);
  // Drops the service with every set's membership and selection of it.
  void removeService(std::string_view id);
  // Drops the set; no set is current afterwards if it was.
  void removeSet(std::string_view id);
  // Identifiers are unique; every membership, selection and the current set
  // name objects of this document; every service has a chain of typed
  // layers and protocols of distinct types.
  bool isWhole() const;
};

// A new store's document: generation 1 and one set, "Default", current.
Document initialDocument();

// A fresh random identifier as a string value.
StringRef newIdentifier();

}  // namespace zn
