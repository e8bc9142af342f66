// Cost of placing one key with each classifier, once the key sets exist.
#include <benchmark/benchmark.h>

#include "config/internal.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

// The configuration-type classifier matches key constants by identity, so
// it is given the constants themselves.
void BM_ConfigurationTypeFromKey(benchmark::State &state, const PVStringRef *key) {
  __JXVPNGetConfigurationTypeFromKey(*key);  // builds the sets outside the timing
  for (auto _ : state) {
    benchmark::DoNotOptimize(__JXVPNGetConfigurationTypeFromKey(*key));
  }
}
BENCHMARK_CAPTURE(BM_ConfigurationTypeFromKey, ipsec_key, &kZNPropNetIPSecSharedSecret);
BENCHMARK_CAPTURE(BM_ConfigurationTypeFromKey, ppp_key, &kZNPropNetPPPAuthName);
BENCHMARK_CAPTURE(BM_ConfigurationTypeFromKey, vpn_key, &kZNPropNetVPNLocalCertificate);
BENCHMARK_CAPTURE(BM_ConfigurationTypeFromKey, unknown_key, &kZNPropUserDefinedName);

// The protocol-type classifier matches by text, as a caller's own string.
void BM_ProtocolTypeFromKey(benchmark::State &state, const char *text) {
  auto key = pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString(text));
  __JXVPNGetProtocolConfigurationTypeFromKey(key.get());
  for (auto _ : state) {
    benchmark::DoNotOptimize(__JXVPNGetProtocolConfigurationTypeFromKey(key.get()));
  }
}
BENCHMARK_CAPTURE(BM_ProtocolTypeFromKey, ipv4_key, "OverridePrimary");
BENCHMARK_CAPTURE(BM_ProtocolTypeFromKey, proxies_key, "HTTPProxyUsername");
BENCHMARK_CAPTURE(BM_ProtocolTypeFromKey, payload_key, "PayloadUUID");
BENCHMARK_CAPTURE(BM_ProtocolTypeFromKey, unknown_key, "PayloadIdentifier");

}  // namespace

BENCHMARK_MAIN();
