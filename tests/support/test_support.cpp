#include "support/test_support.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {

std::string temporaryDirectory(const char *name) {
  const char *tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + name + "-XXXXXX";
  if (!mkdtemp(pattern.data())) std::abort();
  return pattern;
}

void StoreTest::SetUp() {
  // Applies must never reach the machine's own NetworkManager; the engine
  // tests set the engine and the bus themselves.
  setenv("TARNWICK_ENGINE", "none", 0);
  dir_ = temporaryDirectory("tarnwick-test");
  ZNStoreSetDirectory(dir_.c_str());
  PTReset();
}

void StoreTest::TearDown() {
  PTReset();
  ZNStoreSetDirectory(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

int runInChildProcess(const std::function<bool()> &body) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    bool ok = false;
    try {
      ok = body();
    } catch (...) {
    }
    _exit(ok ? 0 : 1);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Ref<PVStringRef> text(const std::string &utf8) {
  return Ref<PVStringRef>::adopt(PVStringCreateWithCString(utf8.c_str()));
}

Ref<PVDataRef> bytes(const std::string &raw) {
  return Ref<PVDataRef>::adopt(PVDataCreate(reinterpret_cast<const uint8_t *>(raw.data()),
                                            static_cast<PVIndex>(raw.size())));
}

Ref<PVArrayRef> array(std::vector<PVTypeRef> values) {
  return Ref<PVArrayRef>::adopt(PVArrayCreate(values.data(), static_cast<PVIndex>(values.size())));
}

Ref<PVDictionaryRef> dict(std::initializer_list<std::pair<DictItem, DictItem>> entries,
                          PVDictionaryRef base) {
  auto building = Ref<PVMutableDictionaryRef>::adopt(base ? PVDictionaryCreateMutableCopy(base)
                                                          : PVDictionaryCreateMutable());
  for (const auto &[key, value] : entries) {
    PVDictionarySetValue(building.get(), key.value, value.value);
  }
  return Ref<PVDictionaryRef>::adopt(PVDictionaryCreateCopy(building.get()));
}

std::vector<std::string> capturedLog() {
  std::vector<std::string> lines;
  for (long i = 0; i < PTLogMessageCount(); ++i) {
    int level = PTLogMessageLevel(i);
    lines.push_back((level == kPTNoLevel ? std::string("-") : std::to_string(level)) + ": " +
                    PTLogMessageText(i));
  }
  return lines;
}

std::vector<std::string> capturedPosts() {
  std::vector<std::string> posts;
  for (long i = 0; i < PTNotificationCount(); ++i) {
    posts.push_back((PTNotificationIsSystemWide(i) ? "system: " : "local: ") +
                    std::string(PTNotificationName(i)));
  }
  return posts;
}

std::string serviceNames(PVArrayRef services, bool ids) {
  std::string names;
  for (PVIndex i = 0; services && i < PVArrayGetCount(services); ++i) {
    auto service = at<ZNNetworkServiceRef>(services, i);
    names += (i ? "," : "") +
             textOf(ids ? ZNNetworkServiceGetServiceID(service) : ZNNetworkServiceGetName(service));
  }
  return names;
}

std::string serviceNames(ZNPreferencesRef prefs, bool ids) {
  return serviceNames(Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs)).get(), ids);
}

std::string chainTypes(ZNNetworkServiceRef service) {
  std::string types;
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    types += (types.empty() ? "" : "/") + textOf(ZNNetworkInterfaceGetInterfaceType(layer));
  }
  return types;
}

std::string cofferItem(const std::string &service) {
  auto query = dict({{kVltClass, kVltClassGenericPassword},
                     {kVltAttrService, service.c_str()},
                     {kVltReturnAttributes, kPVBooleanTrue},
                     {kVltReturnData, kPVBooleanTrue}});
  PVTypeRef found = nullptr;
  if (VltItemCopyMatching(query.get(), &found) != kVltSuccess) return "(none)";
  auto item = Ref<PVDictionaryRef>::adopt(static_cast<PVDictionaryRef>(found));
  std::string text;
  for (PVStringRef key :
       {kVltAttrAccount, kVltAttrDescription, kVltAttrLabel, kVltAttrAccessible}) {
    PVTypeRef value = PVDictionaryGetValue(item.get(), key);
    text += (value ? textOf(value) : "-") + "|";
  }
  return text + bytesOf(PVDictionaryGetValue(item.get(), kVltValueData));
}

VltStatus addCofferPassword(const std::string &service, const std::string &secret,
                            const char *account, PVStringRef accessible, PVTypeRef *reference) {
  auto attributes = Ref<PVMutableDictionaryRef>::adopt(
      PVDictionaryCreateMutableCopy(dict({{kVltClass, kVltClassGenericPassword},
                                          {kVltAttrService, service.c_str()},
                                          {kVltValueData, bytes(secret)}})
                                        .get()));
  if (reference) PVDictionarySetValue(attributes.get(), kVltReturnPersistentRef, kPVBooleanTrue);
  if (account) PVDictionarySetValue(attributes.get(), kVltAttrAccount, text(account).get());
  if (accessible) PVDictionarySetValue(attributes.get(), kVltAttrAccessible, accessible);
  return VltItemAdd(attributes.get(), reference);
}

bool hasCofferItem(const std::string &service) { return cofferItem(service) != "(none)"; }

std::string textOf(PVTypeRef string) {
  if (!string) return "(null)";
  if (PVGetTypeID(string) != PVStringGetTypeID()) return "(not a string)";
  return PVStringGetCStringPtr(static_cast<PVStringRef>(string));
}

std::string bytesOf(PVTypeRef data) {
  auto d = static_cast<PVDataRef>(data);
  return std::string(reinterpret_cast<const char *>(PVDataGetBytePtr(d)),
                     static_cast<size_t>(PVDataGetLength(d)));
}

std::string fileBytes(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace tw::test
