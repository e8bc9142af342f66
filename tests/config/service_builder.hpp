// Services of each chain shape, built through the platform, for the
// configuration tests.
#pragma once

#include "support/test_support.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

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

// A store with an open session; services are made in it.
class ServiceTest : public StoreTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A service on the chain, with the default configuration and, unless
  // told otherwise, the payload protocol.
  ZNNetworkServiceRef makeService(Chain chain, bool payloadProtocol = true);
  // Writes made to interface layers so far, plain and extended.
  static long layerWrites();

  pv::Ref<ZNPreferencesRef> prefs_;
  pv::Ref<ZNNetworkServiceRef> service_;
};

}  // namespace tw::test
