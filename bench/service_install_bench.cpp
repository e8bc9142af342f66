// Installing an L2TP payload into a session that already holds 100, 1,000
// or 10,000 services, without committing.
#include <benchmark/benchmark.h>

#include "bench_stores.hpp"

namespace {

void BM_CreateWithPayloadAtom(benchmark::State &state) {
  const std::string &store = bench::storeWithServices(static_cast<int>(state.range(0)));
  auto prefs = bench::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
  auto payload = bench::l2tpPayload("Office");
  for (auto _ : state) {
    auto service = bench::Ref<ZNNetworkServiceRef>::adopt(
        JXVPNServiceCreateWithPayloadAtom(payload.get(), prefs.get()));
    if (!service) state.SkipWithError("installation failed");
    state.PauseTiming();
    ZNNetworkServiceRemove(service.get());  // keeps the session at its size
    state.ResumeTiming();
  }
}
BENCHMARK(BM_CreateWithPayloadAtom)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
