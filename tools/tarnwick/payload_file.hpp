// Payload files: JSON text read into a payload dictionary, and the checks
// that a payload can be installed, made before the store is touched.
#pragma once

#include <string>
#include <vector>

#include "values.hpp"

namespace tarnwick {

struct PayloadFile {
  std::string path;
  pv::Ref<PVDictionaryRef> dictionary;
};

// Reads and converts a payload file. A missing file is "not found"; text
// that is no JSON object of property values is a malformed payload.
PayloadFile readPayloadFile(const std::string &path);

// Fails (malformed payload, naming the key) unless the payload has a
// "VPNType" the library builds services for, and every key the installer
// reads holds the kind of value it reads there.
void checkInstallable(const PayloadFile &payload);

// The top-level keys installation leaves unused: unknown keys, and known
// keys that have no effect in this payload.
std::vector<std::string> unusedPayloadKeys(PVDictionaryRef payload);

// True when the payload names itself ("PayloadIdentifier" or
// "PayloadUUID"): only then can services be matched with it.
bool hasPayloadIdentity(PVDictionaryRef payload);

// The value under a key given as text; borrowed from the dictionary.
PVTypeRef valueFor(PVDictionaryRef dictionary, const std::string &key);

}  // namespace tarnwick
