// A store with one open session and the log and notification capture on,
// for the service lifecycle tests.
#pragma once

#include <string>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {

// An array element as the handle type it holds (borrowed).
template <typename T>
T elementAt(PVArrayRef array, PVIndex index) {
  return static_cast<T>(const_cast<void *>(PVArrayGetValueAtIndex(array, index)));
}

// The interface types of the service's chain, outermost first.
std::vector<std::string> chainTypes(ZNNetworkServiceRef service);

// The service identifiers of an array of services, in order; empty for NULL.
std::vector<std::string> serviceIDs(PVArrayRef services);

class SessionTest : public StoreTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  ZNPreferencesRef prefs() const { return prefs_.get(); }
  // Identifiers of every service of the session.
  std::vector<std::string> sessionServiceIDs() const;
  // The session's sets, in order.
  Ref<PVArrayRef> sets() const;
  // A further, empty set.
  void addSet() const;
  // A service of `type` named `name`, in every set.
  Ref<ZNNetworkServiceRef> create(PVStringRef type, const char *name) const;
  static std::string idOf(ZNNetworkServiceRef service);

 private:
  Ref<ZNPreferencesRef> prefs_;
};

}  // namespace tw::test
