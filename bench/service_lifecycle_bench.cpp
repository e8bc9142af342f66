// Finding services among 10,000, and the caller's whole installation
// sequence (lock to unlock, credentials stored) into stores of 100, 1,000
// and 10,000 services.
#include <benchmark/benchmark.h>

#include "bench_stores.hpp"

namespace {

// Every service by payload identity, and one payload's service.
void BM_CopyMatching(benchmark::State &state, bool allServices) {
  const std::string &store = bench::storeWithServices(10000);
  auto prefs = bench::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
  auto criteria = bench::dictionary(
      {{kJXPayloadIdentifierKey, bench::text("com.example.filler.Filler 5000").get()}});
  for (auto _ : state) {
    auto found = bench::Ref<PVArrayRef>::adopt(
        JXVPNServiceCopyMatching(allServices ? nullptr : criteria.get(), prefs.get()));
    if (PVArrayGetCount(found.get()) != (allServices ? 10000 : 1))
      state.SkipWithError("wrong match");
  }
}
BENCHMARK_CAPTURE(BM_CopyMatching, every_service_of_10000, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CopyMatching, one_payload_among_10000, false)->Unit(benchmark::kMillisecond);

void BM_InstallationSequence(benchmark::State &state) {
  ZNStoreSetDirectory(bench::storeWithServices(static_cast<int>(state.range(0))).c_str());
  auto payload = bench::l2tpPayload("Office");
  for (auto _ : state) {
    std::string id = bench::installSequence(payload.get());
    if (id.empty()) state.SkipWithError("installation failed");
    state.PauseTiming();
    bench::removeSequence(id);  // keeps the store at its size
    state.ResumeTiming();
  }
}
BENCHMARK(BM_InstallationSequence)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
