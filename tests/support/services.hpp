// Services of each chain shape, built through the platform, and a test
// fixture that makes them in one open session.
#pragma once

#include <vector>

#include "support/test_support.hpp"
#include "tarnwick.h"

namespace tw::test {

enum class Chain {
  IPSec,           // IPSec over IPv4
  L2TP,            // PPP over L2TP over IPv4
  PPTP,            // PPP over PPTP over IPv4
  Vendor,          // VPN over the vendor layer over IPv4
  PPPOverModem,    // PPP over a layer that is no tunnel
  PPPOverNothing,  // PPP alone
};

// The vendor layer's type.
inline constexpr const char *kVendorType = "com.example.vendor";

// A new interface layer of `type` over `below`.
Ref<ZNNetworkInterfaceRef> layer(ZNNetworkInterfaceRef below, PVStringRef type);

// A service on the chain with the default configuration, named `name` when
// one is given, in no set.
Ref<ZNNetworkServiceRef> createService(ZNPreferencesRef prefs, Chain chain,
                                       const char *name = nullptr);

// A store with an open session; services made in it live until the test ends.
class ServiceTest : public StoreTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // createService's service, with the payload protocol unless told otherwise.
  ZNNetworkServiceRef makeService(Chain chain, const char *name = nullptr,
                                  bool payloadProtocol = true);
  // Writes made to interface layers so far, plain and extended.
  static long layerWrites();

  Ref<ZNPreferencesRef> prefs_;
  std::vector<Ref<ZNNetworkServiceRef>> services_;
};

}  // namespace tw::test
