// Payload files: JSON text read into a payload dictionary, and the checks
// that a payload can be installed, made before the store is touched.
#pragma once

#include <string>
#include <vector>

#include "values.hpp"

namespace tarnwick {

struct PayloadFile {
  std::string path;  // as given; "-" is standard input
  std::string name;  // for messages: the path, or "standard input"
  pv::Ref<PVDictionaryRef> dictionary;
};

// Reads and converts a payload file ("-": standard input). A missing file
// is "not found"; anything that is not a JSON object of property values
// (a directory, text that is no JSON) is a malformed payload.
PayloadFile readPayloadFile(const std::string &path);

// What a check finds that does not refuse the payload. Keys are given by
// their path ("Bogus", "PPP.AuthNmae").
struct PayloadFindings {
  std::vector<std::string> unusedKeys;    // keys nothing reads, at any depth
  std::vector<std::string> clearSecrets;  // secrets the preferences would keep in clear
  std::vector<std::string> warnings;      // what the service will lack (a server address)
};

// Fails (malformed payload, naming the key) unless the payload has a
// "VPNType" the library builds services for, and every key read holds the
// kind of value read there.
PayloadFindings checkPayload(const PayloadFile &payload);

// The paths of every secret the payload carries, at any depth.
std::vector<std::string> secretPaths(PVDictionaryRef payload);

// True when the payload names itself ("PayloadIdentifier" or
// "PayloadUUID"): only then can services be matched with it.
bool hasPayloadIdentity(PVDictionaryRef payload);

// The value under a key given as text; borrowed from the dictionary.
PVTypeRef valueFor(PVDictionaryRef dictionary, const std::string &key);

}  // namespace tarnwick
