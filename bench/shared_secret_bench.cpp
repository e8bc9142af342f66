// Export and import of a shared secret of 64 bytes.
#include <benchmark/benchmark.h>

#include <string>

#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

namespace {

pv::Ref<PVStringRef> secret64() {
  std::string text(64, 'k');
  return pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString(text.c_str()));
}

void BM_ExportSharedSecret64(benchmark::State &state) {
  auto secret = secret64();
  for (auto _ : state) {
    PVDataRef exported = JXVPNCreateExportedIPSecSharedSecret(secret.get());
    benchmark::DoNotOptimize(exported);
    PVRelease(exported);
  }
}
BENCHMARK(BM_ExportSharedSecret64);

void BM_ImportSharedSecret64(benchmark::State &state) {
  auto secret = secret64();
  auto exported = pv::Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(secret.get()));
  for (auto _ : state) {
    PVStringRef imported = JXVPNCreateImportedIPSecSharedSecret(exported.get());
    benchmark::DoNotOptimize(imported);
    PVRelease(imported);
  }
}
BENCHMARK(BM_ImportSharedSecret64);

}  // namespace

BENCHMARK_MAIN();
