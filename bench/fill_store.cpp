// fill_store DIR COUNT: adds COUNT L2TP services with payload data to the
// store in DIR (made when missing) and commits them, so that the tool's
// whole-process figures can be taken on a store of a given size.
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
  auto prefs = bench::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(argv[1]));
  if (!prefs || !ZNPreferencesLock(prefs.get(), true)) {
    std::fprintf(stderr, "fill_store: %s\n", ZNErrorString(ZNError()));
    return 1;
  }
  bench::addServices(prefs.get(), std::atoi(argv[2]));
  if (!ZNPreferencesCommitChanges(prefs.get())) {
    std::fprintf(stderr, "fill_store: %s\n", ZNErrorString(ZNError()));
    return 1;
  }
  return 0;
}
