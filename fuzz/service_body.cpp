// A service whose stored body is any bytes, in an otherwise sound store:
// every read of it works or fails as a corrupt store, and a change and a
// commit work or fail; never a crash. This is the text the session reads
// lazily, a part at a time.
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "harness.hpp"
#include "tarnwick.h"

namespace {

void describe(PVTypeRef value) {
  if (value) PVRelease(PVCopyDescription(value));
}

pv::Ref<PVStringRef> string(const char *text) {
  return pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString(text));
}

// The bytes of a store's database holding one L2TP service, made once.
const std::string &soundStore() {
  static const std::string bytes = [] {
    const std::string store = fuzz::scratchDirectory() + "/template";
    std::filesystem::create_directory(store);
    auto prefs = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
    auto service = pv::Ref<ZNNetworkServiceRef>::adopt(
        JXVPNServiceCreate(kZNEntNetL2TP, string("Fuzzed").get(), prefs.get()));
    if (!service || !ZNPreferencesCommitChanges(prefs.get())) std::abort();
    std::ifstream file(store + "/preferences.db", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  return bytes;
}

void storeBody(const std::string &database, const uint8_t *data, size_t size) {
  sqlite3 *db = nullptr;
  sqlite3_stmt *update = nullptr;
  if (sqlite3_open(database.c_str(), &db) != SQLITE_OK ||
      sqlite3_prepare_v2(db, "UPDATE services SET body = ?", -1, &update, nullptr) != SQLITE_OK ||
      sqlite3_bind_blob(update, 1, data, static_cast<int>(size), SQLITE_TRANSIENT) != SQLITE_OK ||
      sqlite3_step(update) != SQLITE_DONE) {
    std::abort();
  }
  sqlite3_finalize(update);
  sqlite3_close(db);
}

void readAll(ZNNetworkServiceRef service) {
  (void)JXVPNServiceGetType(service);
  auto protocols = pv::Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyProtocols(service));
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = static_cast<ZNNetworkProtocolRef>(
        const_cast<void *>(PVArrayGetValueAtIndex(protocols.get(), i)));
    describe(ZNNetworkProtocolGetConfiguration(protocol));
  }
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    describe(ZNNetworkInterfaceGetInterfaceType(layer));
    describe(ZNNetworkInterfaceGetConfiguration(layer));
    describe(ZNNetworkInterfaceGetExtendedConfiguration(layer, kZNEntNetIPSec));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string store = fuzz::scratchDirectory() + "/store";
  const std::string &sound = soundStore();
  std::filesystem::remove_all(store);
  std::filesystem::create_directory(store);
  std::ofstream(store + "/preferences.db", std::ios::binary)
      .write(sound.data(), static_cast<std::streamsize>(sound.size()));
  storeBody(store + "/preferences.db", data, size);

  auto prefs = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
  if (!prefs) return 0;
  auto vpn = pv::Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs.get()));
  auto onDemand = pv::Ref<PVArrayRef>::adopt(JXVPNServiceCopyOnDemandSupported(prefs.get()));
  auto services = pv::Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
  if (PVArrayGetCount(services.get()) != 1) std::abort();
  auto service = static_cast<ZNNetworkServiceRef>(
      const_cast<void *>(PVArrayGetValueAtIndex(services.get(), 0)));
  readAll(service);
  // A protocol changed, the service renamed: committed, then read afresh.
  (void)JXVPNServiceSetProtocolConfigurationProperty(service, string("PayloadUUID").get(),
                                                     string("changed").get());
  (void)ZNNetworkServiceSetName(service, string("Renamed").get());
  if (ZNPreferencesCommitChanges(prefs.get())) {
    auto again = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
    if (!again) std::abort();  // what a commit writes always opens
    auto reread = pv::Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(again.get()));
    for (PVIndex i = 0; i < PVArrayGetCount(reread.get()); ++i) {
      readAll(static_cast<ZNNetworkServiceRef>(
          const_cast<void *>(PVArrayGetValueAtIndex(reread.get(), i))));
    }
  }
  return 0;
}
