// Small helpers for the preferences store's tests.
#pragma once

#include <sqlite3.h>

#include <string>

#include "support/test_support.hpp"
#include "tarnwick/platform/prefs.h"

namespace tw::test {

// An array element as the handle type it holds (borrowed).
template <typename T>
T at(PVArrayRef array, PVIndex index) {
  return static_cast<T>(const_cast<void *>(PVArrayGetValueAtIndex(array, index)));
}

// A new L2TP service (PPP over L2TP over IPv4) with the default
// configuration, named `name`, in no set.
inline Ref<ZNNetworkServiceRef> createL2TPService(ZNPreferencesRef prefs, const char *name) {
  auto l2tp = Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, kZNEntNetL2TP));
  auto ppp = Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(l2tp.get(), kZNNetworkInterfaceTypePPP));
  auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs, ppp.get()));
  ZNNetworkServiceEstablishDefaultConfiguration(service.get());
  ZNNetworkServiceSetName(service.get(), text(name).get());
  return service;
}

// The interface types of a chain, outermost first: "PPP/L2TP/IPv4".
inline std::string chainTypes(ZNNetworkInterfaceRef outer) {
  std::string types;
  for (ZNNetworkInterfaceRef layer = outer; layer; layer = ZNNetworkInterfaceGetInterface(layer)) {
    types += (types.empty() ? "" : "/") + textOf(ZNNetworkInterfaceGetInterfaceType(layer));
  }
  return types;
}

// The names of the session's services, in order, joined by commas.
inline std::string serviceNames(ZNPreferencesRef prefs) {
  auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs));
  std::string names;
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    names += (i ? "," : "") +
             textOf(ZNNetworkServiceGetName(at<ZNNetworkServiceRef>(services.get(), i)));
  }
  return names;
}

// Runs `sql` on a database file directly, as another program would; the
// text of the first column of the last row, or the error message.
inline std::string runSql(const std::string &path, const std::string &sql) {
  sqlite3 *db = nullptr;
  std::string result;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) ==
      SQLITE_OK) {
    char *error = nullptr;
    auto keep = [](void *out, int, char **values, char **) {
      *static_cast<std::string *>(out) = values[0] ? values[0] : "NULL";
      return 0;
    };
    if (sqlite3_exec(db, sql.c_str(), keep, &result, &error) != SQLITE_OK) {
      result = std::string("error: ") + (error ? error : "");
    }
    sqlite3_free(error);
  }
  sqlite3_close(db);
  return result;
}

}  // namespace tw::test
