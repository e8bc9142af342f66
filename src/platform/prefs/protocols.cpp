// Protocols of a service. A protocol's configuration belongs to the
// session's copy, not to the handle, so it outlives the handle.
#include "platform/prefs/handles.hpp"

extern "C" {

PVStringRef ZNNetworkProtocolGetProtocolType(ZNNetworkProtocolRef protocol) noexcept {
  return zn::run(__func__, nullptr,
                 [&] { return zn::expectProtocol(protocol).model().type.get(); });
}

PVDictionaryRef ZNNetworkProtocolGetConfiguration(ZNNetworkProtocolRef protocol) noexcept {
  return zn::run(__func__, nullptr,
                 [&] { return zn::expectProtocol(protocol).model().configuration.get(); });
}

Boolean ZNNetworkProtocolSetConfiguration(ZNNetworkProtocolRef protocol,
                                          PVDictionaryRef configuration) noexcept {
  return zn::run(__func__, false, [&] {
    ZNNetworkProtocol &handle = zn::expectProtocol(protocol);
    zn::DictionaryRef copy = zn::storableConfiguration(configuration);
    handle.modelForChange().configuration = std::move(copy);
    handle.changed();
    return true;
  });
}

}  // extern "C"
