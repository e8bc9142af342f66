// The Coffer's item operations on a Coffer of 1,000 passwords, each beside
// the bare SQLite statement that does the same work in the same durability
// mode (rollback journal, synchronous=FULL) on a table of 1,000 rows with
// the same index: what the Coffer adds to SQLite.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include "bench_stores.hpp"

namespace {

constexpr int kItems = 1000;

using bench::text;

std::string serviceName(int i) { return "bench-service-" + std::to_string(i); }

// A store whose Coffer holds kItems passwords; made once.
void cofferWithItems() {
  static const bool made = [] {
    bench::storeWithServices(0);  // an empty store, now the process's
    VltBatchBegin();
    for (int i = 0; i < kItems; ++i) {
      PVRelease(JXCofferSetValue(text(serviceName(i)).get(), text("account").get(), nullptr,
                                 nullptr, text("secret").get()));
    }
    return VltBatchCommit() == kVltSuccess;
  }();
  if (!made) throw std::runtime_error("cannot fill the Coffer");
}

void BM_CofferSet(benchmark::State &state) {
  cofferWithItems();
  auto service = text("new service"), account = text("account"), value = text("secret");
  for (auto _ : state) {
    // The result is a persistent reference only when asked for one: NULL here.
    PVRelease(JXCofferSetValue(service.get(), account.get(), nullptr, nullptr, value.get()));
    state.PauseTiming();
    JXCofferRemoveValue(service.get(), account.get(), nullptr, nullptr);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_CofferSet)->Unit(benchmark::kMillisecond);

void BM_CofferCopy(benchmark::State &state) {
  cofferWithItems();
  auto service = text(serviceName(kItems / 2)), account = text("account");
  for (auto _ : state) {
    auto value = bench::Ref<PVStringRef>::adopt(
        JXCofferCopyValue(service.get(), account.get(), nullptr, nullptr));
    if (!value) state.SkipWithError("not found");
  }
}
BENCHMARK(BM_CofferCopy)->Unit(benchmark::kMicrosecond);

void BM_CofferRemove(benchmark::State &state) {
  cofferWithItems();
  auto service = text("new service"), account = text("account"), value = text("secret");
  for (auto _ : state) {
    state.PauseTiming();
    PVRelease(JXCofferSetValue(service.get(), account.get(), nullptr, nullptr, value.get()));
    state.ResumeTiming();
    JXCofferRemoveValue(service.get(), account.get(), nullptr, nullptr);
  }
}
BENCHMARK(BM_CofferRemove)->Unit(benchmark::kMillisecond);

// The bare table, made once, and one statement run on it.
class BareTable {
 public:
  BareTable() {
    path_ = bench::storeWithServices(0) + "/bare.db";
    sqlite3_open(path_.c_str(), &db_);
    run("PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL;"
        "CREATE TABLE items(id INTEGER PRIMARY KEY, service TEXT, account TEXT, data BLOB);"
        "CREATE INDEX items_by_service ON items(service, account); BEGIN");
    for (int i = 0; i < kItems; ++i) {
      run(("INSERT INTO items(service, account, data) VALUES ('" + serviceName(i) +
           "', 'account', 'secret')")
              .c_str());
    }
    run("COMMIT");
  }
  ~BareTable() { sqlite3_close(db_); }
  bool run(const char *sql) { return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == 0; }
  // The one text column of the one row the query gives.
  bool select(const char *sql) {
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr);
    bool found = sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_bytes(statement, 0) > 0;
    sqlite3_finalize(statement);
    return found;
  }

 private:
  std::string path_;
  sqlite3 *db_ = nullptr;
};

BareTable &bareTable() {
  static BareTable table;
  return table;
}

constexpr const char *kInsert =
    "INSERT INTO items(service, account, data) VALUES ('new service', 'account', 'secret')";
constexpr const char *kDelete =
    "DELETE FROM items WHERE service = 'new service' AND account = 'account'";

void BM_SqliteInsert(benchmark::State &state) {
  BareTable &table = bareTable();
  for (auto _ : state) {
    if (!table.run(kInsert)) state.SkipWithError("insert failed");
    state.PauseTiming();
    table.run(kDelete);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_SqliteInsert)->Unit(benchmark::kMillisecond);

void BM_SqliteSelect(benchmark::State &state) {
  BareTable &table = bareTable();
  std::string query = "SELECT data FROM items WHERE service = '" + serviceName(kItems / 2) +
                      "' AND account = 'account'";
  for (auto _ : state) {
    if (!table.select(query.c_str())) state.SkipWithError("not found");
  }
}
BENCHMARK(BM_SqliteSelect)->Unit(benchmark::kMicrosecond);

void BM_SqliteDelete(benchmark::State &state) {
  BareTable &table = bareTable();
  for (auto _ : state) {
    state.PauseTiming();
    table.run(kInsert);
    state.ResumeTiming();
    if (!table.run(kDelete)) state.SkipWithError("delete failed");
  }
}
BENCHMARK(BM_SqliteDelete)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
