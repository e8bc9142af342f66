// Helpers shared by every test suite.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace tw::test {

template <typename T>
using Ref = pv::Ref<T>;

// A fresh store directory for one test: made under $TMPDIR, set as the
// process's store directory (preferences, Coffer, connection registry),
// with the testing interface's counts and plans reset; removed afterwards.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  const std::string &storeDir() const { return dir_; }

 private:
  std::string dir_;
};

// A new directory named after `name` under $TMPDIR (or /tmp).
std::string temporaryDirectory(const char *name);

// Runs `body` in a forked child process (a real second process) and returns
// its exit status: 0 when the body returned true. Test assertions inside
// the body do not reach the parent; report through the return value.
int runInChildProcess(const std::function<bool()> &body);

// Values made from literals, held.
Ref<PVStringRef> text(const std::string &utf8);
Ref<PVDataRef> bytes(const std::string &raw);
Ref<PVArrayRef> array(std::vector<PVTypeRef> values);

// A dictionary key or value: a value, or text that becomes a new string
// (never a constant, so a C string is never taken for one by accident).
struct DictItem {
  DictItem(PVTypeRef item) : value(item) {}
  template <typename T>
  DictItem(const Ref<T> &item) : value(item.get()) {}
  DictItem(const char *utf8) : made(text(utf8)), value(made.get()) {}
  Ref<PVStringRef> made;
  PVTypeRef value;
};
// An immutable dictionary: the entries of `base`, if any, then `entries`.
// The values must live until it returns, as temporaries of the calling
// expression do.
Ref<PVDictionaryRef> dict(std::initializer_list<std::pair<DictItem, DictItem>> entries,
                          PVDictionaryRef base = nullptr);

// What the testing interface captured since the test's capture started:
// each log message as "<level>: <text>" ("-: <text>" for the message
// without a level), each post as "local: <name>" or "system: <name>".
std::vector<std::string> capturedLog();
std::vector<std::string> capturedPosts();

// An array element as the handle type it holds (borrowed).
template <typename T>
T at(PVArrayRef array, PVIndex index) {
  return static_cast<T>(const_cast<void *>(PVArrayGetValueAtIndex(array, index)));
}

// The names of an array of services (their identifiers with `ids`), joined
// by commas; "" for NULL.
std::string serviceNames(PVArrayRef services, bool ids = false);
// The same of every service of the session.
std::string serviceNames(ZNPreferencesRef prefs, bool ids = false);

// The interface types of the service's chain, outermost first: "PPP/L2TP/IPv4".
std::string chainTypes(ZNNetworkServiceRef service);

// The generic-password item stored under `service`, as the Coffer holds it:
// "account|description|label|accessibility|secret", "-" for a missing
// attribute; "(none)" without such an item.
std::string cofferItem(const std::string &service);
// Adds a generic password for `service` straight to the Coffer, with the
// account and accessibility when given; `reference`, when given, receives
// its persistent reference (Create rule).
VltStatus addCofferPassword(const std::string &service, const std::string &secret = "secret",
                            const char *account = nullptr, PVStringRef accessible = nullptr,
                            PVTypeRef *reference = nullptr);
bool hasCofferItem(const std::string &service);

// The text of a string, or "(null)", or "(not a string)".
std::string textOf(PVTypeRef string);
// The bytes of a data value.
std::string bytesOf(PVTypeRef data);
std::string fileBytes(const std::string &path);

}  // namespace tw::test
