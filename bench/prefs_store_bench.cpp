// The preferences store at scale: what a commit, an install, a listing and
// an open cost as the store grows. Each figure is read against its
// baseline in the same run (a smaller store, or a bare SQLite transaction):
//
//   BM_CommitNewService/10000     vs /100                 one new service, committed
//   BM_Install/10000              vs /100                 open, lock, create, commit, apply, unlock
//   BM_ListServiceNames/10000     vs /1000                every service's name
//   BM_CommitNewService/100       vs BM_BareTransaction   the store's overhead over SQLite
//   BM_OpenAndReadOneService/10000                        run alone: its peak_rss_MB is the
//                                                         process's peak memory
//   BM_FillOneInstallPerSession/10000                     run alone: 0 -> 10,000 installs
//
// Stores are built in a child process, one session and one commit, so that
// building costs the measured process neither time nor memory.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"

namespace {

template <typename T>
using Ref = pv::Ref<T>;

Ref<PVStringRef> text(const std::string &utf8) {
  return Ref<PVStringRef>::adopt(PVStringCreateWithCString(utf8.c_str()));
}

Ref<PVDictionaryRef> dictionary(const std::map<std::string, std::string> &entries) {
  auto building = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  for (const auto &[key, value] : entries) {
    PVDictionarySetValue(building.get(), text(key).get(), text(value).get());
  }
  return Ref<PVDictionaryRef>::adopt(PVDictionaryCreateCopy(building.get()));
}

std::string temporaryDirectory() {
  const char *tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarnwick-bench-XXXXXX";
  if (!mkdtemp(pattern.data())) std::abort();
  return pattern;
}

// The platform calls the library's creation of an IPSec service makes,
// with the configuration an installed payload leaves: false on a failure.
bool createService(ZNPreferencesRef prefs, int number) {
  auto ipsec = Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, kZNEntNetIPSec));
  auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs, ipsec.get()));
  auto payload = text("com.velmora.payload");
  if (!service || !ZNNetworkServiceEstablishDefaultConfiguration(service.get()) ||
      !ZNNetworkServiceAddProtocolType(service.get(), payload.get()) ||
      !ZNNetworkServiceSetEnabled(service.get(), false) ||
      !ZNNetworkServiceSetName(service.get(), text("VPN " + std::to_string(number)).get())) {
    return false;
  }
  auto configuration = dictionary({{"RemoteAddress", "vpn.example.com"},
                                   {"AuthenticationMethod", "SharedSecret"},
                                   {"LocalIdentifier", "group-" + std::to_string(number)},
                                   {"XAuthName", "user"},
                                   {"SharedSecretEncryption", "Coffer"},
                                   {"SharedSecret", "b5c1f3e2-3a44-4f6e-9d3c-0e4b2c7a9f10.SS"}});
  auto payloadConfiguration =
      dictionary({{"PayloadIdentifier", "com.example.vpn." + std::to_string(number)},
                  {"PayloadUUID", "0f6e7c1a-58d4-4f0e-a7d2-3c9b8e5f4a21"},
                  {"PayloadOrganization", "Example"}});
  auto protocol =
      Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service.get(), payload.get()));
  if (!ZNNetworkInterfaceSetConfiguration(ZNNetworkServiceGetInterface(service.get()),
                                          configuration.get()) ||
      !ZNNetworkProtocolSetConfiguration(protocol.get(), payloadConfiguration.get())) {
    return false;
  }
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs));
  for (PVIndex i = 0; sets && i < PVArrayGetCount(sets.get()); ++i) {
    auto set =
        static_cast<ZNNetworkSetRef>(const_cast<void *>(PVArrayGetValueAtIndex(sets.get(), i)));
    if (!ZNNetworkSetAddService(set, service.get())) return false;
  }
  return static_cast<bool>(sets);
}

bool install(const std::string &directory, int number) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
  return prefs && ZNPreferencesLock(prefs.get(), true) && createService(prefs.get(), number) &&
         ZNPreferencesCommitChanges(prefs.get()) && ZNPreferencesApplyChanges(prefs.get()) &&
         ZNPreferencesUnlock(prefs.get());
}

// A store of `count` services, built once per size in a child process and
// kept for the run.
const std::string &storeOf(int count) {
  static std::map<int, std::string> stores;
  auto found = stores.find(count);
  if (found != stores.end()) return found->second;
  std::string directory = temporaryDirectory();
  pid_t child = fork();
  if (child == 0) {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
    bool ok = static_cast<bool>(prefs);
    for (int i = 0; ok && i < count; ++i) ok = createService(prefs.get(), i);
    _exit(ok && ZNPreferencesCommitChanges(prefs.get()) ? 0 : 1);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::abort();
  }
  return stores.emplace(count, directory).first->second;
}

// A copy of the store of `count` services, for a benchmark that changes it.
std::string copyOfStore(int count) {
  std::string directory = temporaryDirectory();
  std::filesystem::copy_file(storeOf(count) + "/preferences.db", directory + "/preferences.db");
  std::filesystem::permissions(
      directory + "/preferences.db",
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  return directory;
}

void BM_CommitNewService(benchmark::State &state) {
  const std::string directory = copyOfStore(static_cast<int>(state.range(0)));
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
  int number = 0;
  for (auto _ : state) {
    if (!createService(prefs.get(), ++number) || !ZNPreferencesCommitChanges(prefs.get())) {
      state.SkipWithError("commit failed");
    }
  }
  prefs = {};
  std::filesystem::remove_all(directory);
}
BENCHMARK(BM_CommitNewService)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_Install(benchmark::State &state) {
  const std::string directory = copyOfStore(static_cast<int>(state.range(0)));
  int number = 0;
  for (auto _ : state) {
    if (!install(directory, ++number)) state.SkipWithError("install failed");
  }
  std::filesystem::remove_all(directory);
}
BENCHMARK(BM_Install)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_ListServiceNames(benchmark::State &state) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(
      ZNPreferencesCreateWithStore(storeOf(static_cast<int>(state.range(0))).c_str()));
  for (auto _ : state) {
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
      benchmark::DoNotOptimize(ZNNetworkServiceGetName(static_cast<ZNNetworkServiceRef>(
          const_cast<void *>(PVArrayGetValueAtIndex(services.get(), i)))));
    }
  }
}
BENCHMARK(BM_ListServiceNames)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// One transaction writing one row the size of a service's row, in the
// store's own mode: rollback journal truncated, synchronous=FULL.
void BM_BareTransaction(benchmark::State &state) {
  const std::string directory = temporaryDirectory();
  sqlite3 *db = nullptr;
  sqlite3_open((directory + "/bare.db").c_str(), &db);
  sqlite3_exec(db,
               "PRAGMA journal_mode=TRUNCATE; PRAGMA synchronous=FULL;"
               "CREATE TABLE t(position INTEGER PRIMARY KEY, id TEXT UNIQUE, body BLOB)",
               nullptr, nullptr, nullptr);
  sqlite3_int64 rowBytes = 0;
  {
    sqlite3 *store = nullptr;
    sqlite3_open_v2((storeOf(100) + "/preferences.db").c_str(), &store, SQLITE_OPEN_READONLY,
                    nullptr);
    sqlite3_stmt *size = nullptr;
    sqlite3_prepare_v2(store, "SELECT length(body) + length(name) FROM services LIMIT 1", -1, &size,
                       nullptr);
    if (sqlite3_step(size) == SQLITE_ROW) rowBytes = sqlite3_column_int64(size, 0);
    sqlite3_finalize(size);
    sqlite3_close(store);
  }
  const std::string body(static_cast<size_t>(rowBytes), 'x');
  sqlite3_stmt *insert = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO t(id, body) VALUES (?, ?)", -1, &insert, nullptr);
  int number = 0;
  for (auto _ : state) {
    const std::string id = "00000000-0000-4000-8000-" + std::to_string(1000000000000 + ++number);
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    sqlite3_bind_text(insert, 1, id.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_blob(insert, 2, body.data(), static_cast<int>(body.size()), SQLITE_STATIC);
    if (sqlite3_step(insert) != SQLITE_DONE) state.SkipWithError("insert failed");
    sqlite3_reset(insert);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  }
  state.counters["row_bytes"] = static_cast<double>(rowBytes);
  sqlite3_finalize(insert);
  sqlite3_close(db);
  std::filesystem::remove_all(directory);
}
BENCHMARK(BM_BareTransaction)->Unit(benchmark::kMillisecond);

// The process's peak resident memory (VmHWM), in MB.
double peakResidentMegabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;  // kB
  }
  return 0;
}

void BM_OpenAndReadOneService(benchmark::State &state) {
  const std::string &directory = storeOf(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(directory.c_str()));
    auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
    auto service = static_cast<ZNNetworkServiceRef>(const_cast<void *>(
        PVArrayGetValueAtIndex(services.get(), PVArrayGetCount(services.get()) / 2)));
    benchmark::DoNotOptimize(
        ZNNetworkInterfaceGetConfiguration(ZNNetworkServiceGetInterface(service)));
  }
  // The store was built in a child process, so this is what opening and
  // reading cost, plus the program itself.
  state.counters["peak_rss_MB"] = peakResidentMegabytes();
}
BENCHMARK(BM_OpenAndReadOneService)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_FillOneInstallPerSession(benchmark::State &state) {
  for (auto _ : state) {
    const std::string directory = temporaryDirectory();
    for (int i = 0; i < state.range(0); ++i) {
      if (!install(directory, i)) state.SkipWithError("install failed");
    }
    std::filesystem::remove_all(directory);
  }
}
BENCHMARK(BM_FillOneInstallPerSession)->Arg(10000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
