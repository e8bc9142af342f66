// fill_store DIR COUNT: installs COUNT L2TP services, with their secrets in
// the Coffer, into the store in DIR (made when missing), making the same
// rows as COUNT runs of `tarnwick install` would, in seconds rather than
// minutes; for the tool's whole-process figures on stores of a given size.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "bench_stores.hpp"

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fill_store DIR COUNT\n");
    return 2;
  }
  mkdir(argv[1], 0700);
  ZNStoreSetDirectory(argv[1]);
  auto prefs = bench::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(argv[1]));
  if (!prefs || !ZNPreferencesLock(prefs.get(), true) ||
      !bench::installServices(prefs.get(), std::atoi(argv[2]))) {
    std::fprintf(stderr, "fill_store: %s\n", ZNErrorString(ZNError()));
    return 1;
  }
  return 0;
}
