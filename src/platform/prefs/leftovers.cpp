// What killed sessions leave in a store directory: the temporary files a
// file is written to before it is renamed into place, and their journals.
//
//   .<name>.XXXXXX            a store being made (tables.cpp), a registry
//                             being replaced (files.cpp)
//   .<name>.XXXXXX-journal    SQLite's journal of the store being made
//   <name>.new-<pid>          the VPN engine's memory being replaced
//
// Every writer of these holds the preferences lock or the registry's lock
// while the file exists, so under both locks each one found is a leftover.
// The store's own files never match.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/prefs/connections.hpp"
#include "platform/prefs/handles.hpp"

namespace {

constexpr size_t kTemporarySuffix = 6;                    // mkstemp's XXXXXX

bool isTemporaryName(std::string_view name) {
  if (name.ends_with("-journal")) name.remove_suffix(8);
  if (name.size() < 3 + kTemporarySuffix || name[0] != '.') return false;
  std::string_view suffix = name.substr(name.size() - kTemporarySuffix);
  return name[name.size() - kTemporarySuffix - 1] == '.' &&
         std::all_of(suffix.begin(), suffix.end(),
                     [](unsigned char c) { return std::isalnum(c) != 0; });
}

bool isReplacementName(std::string_view name) {
  size_t marker = name.rfind(".new-");
  if (marker == std::string_view::npos || marker == 0) return false;
  std::string_view pid = name.substr(marker + 5);
  return !pid.empty() &&
         std::all_of(pid.begin(), pid.end(), [](unsigned char c) { return std::isdigit(c); });
}

std::vector<std::string> leftoversIn(const std::string &directory) {
  std::vector<std::string> names;
  DIR *dir = opendir(directory.c_str());
  if (!dir) zn::failFromErrno();
  while (dirent *entry = readdir(dir)) {
    std::string_view name = entry->d_name;
    if (!isTemporaryName(name) && !isReplacementName(name)) continue;
    struct stat info {};
    if (fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(info.st_mode)) {
      names.emplace_back(name);
    }
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

extern "C" {

PVArrayRef ZNPreferencesCopyLeftoverFiles(ZNPreferencesRef prefs, Boolean remove) noexcept {
  return zn::run(__func__, nullptr, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ScopedLock locked(session.lock);
    zn::LockFile registryLock(session.directory + "/" + zn::kRegistryLockName);
    zn::ScopedLock registryLocked(registryLock);
    auto found = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
    if (!found) throw std::bad_alloc();
    for (const std::string &name : leftoversIn(session.directory)) {
      if (remove && unlink((session.directory + "/" + name).c_str()) != 0 && errno != ENOENT) {
        zn::failFromErrno();
      }
      PVArrayAppendValue(found.get(), zn::makeString(name).get());
    }
    if (remove) (void)zn::syncDirectory(session.directory);  // only the removals' durability
    return static_cast<PVArrayRef>(found.release());
  });
}

}  // extern "C"
