// Finding services among 100 and 10,000, and the caller's whole installation
// sequence (lock to unlock, credentials stored) into stores of 100, 1,000
// and 10,000 services.
#include <benchmark/benchmark.h>

#include "bench_stores.hpp"

namespace {

// Every service, and one payload's service, among 100 or 10,000, in a
// session opened for it, as a process that looks for a service opens one.
void BM_CopyMatching(benchmark::State &state, bool allServices) {
  const int count = static_cast<int>(state.range(0));
  const std::string &store = bench::storeWithServices(count);
  auto criteria = bench::dictionary(
      {{kJXPayloadIdentifierKey, bench::text("com.example.vpn.Filler 50").get()}});
  for (auto _ : state) {
    auto prefs =
        bench::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
    auto found = bench::Ref<PVArrayRef>::adopt(
        JXVPNServiceCopyMatching(allServices ? nullptr : criteria.get(), prefs.get()));
    if (PVArrayGetCount(found.get()) != (allServices ? count : 1))
      state.SkipWithError("wrong match");
  }
}
BENCHMARK_CAPTURE(BM_CopyMatching, every_service, true)
    ->Arg(100)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CopyMatching, one_payload, false)
    ->Arg(100)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);

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
