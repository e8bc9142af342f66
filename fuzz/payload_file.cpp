// The tool's payload file reader on any file content: read, checked for
// installation, its secrets listed; a failure is the tool's Failure, never
// a crash. The tool's own objects are linked in.
#include <fstream>

#include "harness.hpp"
#include "payload_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string path = fuzz::scratchDirectory() + "/payload.json";
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
  try {
    tarnwick::PayloadFile payload = tarnwick::readPayloadFile(path);
    (void)tarnwick::checkPayload(payload);
    (void)tarnwick::secretPaths(payload.dictionary.get());
    (void)tarnwick::hasPayloadIdentity(payload.dictionary.get());
  } catch (const std::exception &) {
    // What the tool reports as one message and an exit code.
  }
  return 0;
}
