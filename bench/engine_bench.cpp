// The VPN engine's apply with NetworkManager holding 1,000 of Tarnwick's
// connections: one changed service, and in the same run the baselines (no
// change; the engine off) and the thorough apply that reads every
// connection. Needs a NetworkManager of its own: run it inside the test
// sandbox,
//   tests/platform/engine/nm-sandbox run build-bench/bench/engine_bench
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <string>

#include "bench_stores.hpp"
#include "tarnwick/platform/engine.h"

namespace {

using bench::Ref;
using bench::text;

constexpr int kServices = 1000;

int64_t reportNumber(PVDictionaryRef report, const char *key) {
  int64_t n = -1;
  if (report) {
    PVNumberGetValue(static_cast<PVNumberRef>(PVDictionaryGetValue(report, text(key).get())),
                     kPVNumberSInt64Type, &n);
  }
  return n;
}

void setServer(ZNNetworkServiceRef service, const std::string &server) {
  auto ppp = bench::dictionary({{kZNPropNetPPPCommRemoteAddress, text(server).get()},
                                {kZNPropNetPPPAuthName, text("alice").get()}});
  ZNNetworkInterfaceSetConfiguration(ZNNetworkServiceGetInterface(service), ppp.get());
}

// A store of kServices L2TP services that NetworkManager holds, made once.
struct Fixture {
  Fixture() {
    setenv("TARNWICK_ENGINE", "networkmanager", 1);
    directory = bench::storeWithServices(kServices);
    prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
    services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
      setServer(service(i), "vpn" + std::to_string(i) + ".example.com");
    }
    ZNPreferencesCommitChanges(prefs.get());
    ZNPreferencesApplyChanges(prefs.get());
    auto report = Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
    added = reportNumber(report.get(), "Added");
    if (added != kServices) {
      std::fprintf(stderr, "engine_bench: NetworkManager took %lld of %d connections\n",
                   static_cast<long long>(added), kServices);
    }
  }
  ZNNetworkServiceRef service(PVIndex i) const {
    return static_cast<ZNNetworkServiceRef>(
        const_cast<void *>(PVArrayGetValueAtIndex(services.get(), i)));
  }

  std::string directory;
  Ref<ZNPreferencesRef> prefs;
  Ref<PVArrayRef> services;
  int64_t added = 0;
};

Fixture &fixture() {
  static Fixture made;
  return made;
}

// Times one apply per iteration; before it, untimed, `prepare(round)`;
// after it, the report's `key` must be `expected` (-1: not looked at).
template <typename Prepare>
void applyEach(benchmark::State &state, const char *engine, Prepare prepare, const char *key,
               int64_t expected) {
  Fixture &f = fixture();
  setenv("TARNWICK_ENGINE", engine, 1);
  static int64_t round = 0;  // across repetitions: each change is a new one
  for (auto _ : state) {
    state.PauseTiming();
    prepare(++round);
    state.ResumeTiming();
    ZNPreferencesApplyChanges(f.prefs.get());
    state.PauseTiming();
    auto report = Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
    if (expected >= 0 && reportNumber(report.get(), key) != expected) {
      auto text = Ref<PVStringRef>::adopt(PVCreateJSONString(report.get()));
      std::string json = text ? PVStringGetCStringPtr(text.get()) : "no report";
      state.SkipWithError(
          ("the engine did not do what was expected: " + json.substr(0, 400)).c_str());
      break;
    }
    state.ResumeTiming();
  }
  setenv("TARNWICK_ENGINE", "networkmanager", 1);
}

// Changes one service's server and commits: the apply's work.
void changeOne(int64_t round) {
  Fixture &f = fixture();
  setServer(f.service(round % kServices), "changed" + std::to_string(round) + ".example.com");
  ZNPreferencesCommitChanges(f.prefs.get());
}

void BM_ApplyOneChangedService(benchmark::State &state) {
  applyEach(state, "networkmanager", changeOne, "Updated", 1);
}

// Baseline: the same change with the engine off.
void BM_ApplyOneChangedServiceEngineOff(benchmark::State &state) {
  applyEach(state, "none", changeOne, "", -1);
  // Put NetworkManager back in line for what follows.
  ZNEngineApply(fixture().prefs.get());
  PVRelease(ZNEngineCopyReport());
}

// Baseline: an apply that has nothing to send.
void BM_ApplyNothingChanged(benchmark::State &state) {
  applyEach(
      state, "networkmanager", [](int64_t) {}, "Unchanged", kServices);
}

// tarnwick apply: reads every connection NetworkManager holds.
void BM_ThoroughApply(benchmark::State &state) {
  Fixture &f = fixture();
  setenv("TARNWICK_ENGINE", "networkmanager", 1);
  for (auto _ : state) {
    ZNEngineApply(f.prefs.get());
    state.PauseTiming();
    PVRelease(ZNEngineCopyReport());
    state.ResumeTiming();
  }
}

}  // namespace

BENCHMARK(BM_ApplyOneChangedService)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_ApplyOneChangedServiceEngineOff)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_ApplyNothingChanged)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_ThoroughApply)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

BENCHMARK_MAIN();
