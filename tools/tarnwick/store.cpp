#include "store.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "failure.hpp"
#include "output.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

std::string platformError() {
  int code = ZNError();
  return std::string(ZNErrorString(code)) + " (" + std::to_string(code) + ")";
}

[[noreturn]] void storeFailure(const std::string &message) {
  throw Failure(Exit::storeUnavailable, message);
}

// Another session that commits between our open and our lock makes ours
// stale; with nothing changed yet, re-reading and trying again is safe.
constexpr int kStaleRetries = 64;

double lockWait = -1;

// Closes a directory descriptor on the way out.
struct Directory {
  int fd;
  ~Directory() {
    if (fd >= 0) ::close(fd);
  }
};

// A lock attempt that re-reads a stale session (our copy older than the
// store) and tries again; false when another process holds the lock.
bool tryLock(ZNPreferencesRef prefs) {
  for (int attempt = 0;; ++attempt) {
    if (ZNPreferencesLock(prefs, false)) return true;
    if (ZNError() == kZNStatusLockFailed) return false;
    if (ZNError() != kZNStatusStale || attempt == kStaleRetries) {
      throw Failure(Exit::lock, "cannot lock the preferences: " + platformError());
    }
    (void)ZNPreferencesSynchronize(prefs);  // the next attempt tells whether it helped
  }
}

}  // namespace

void chooseStore(const std::string &directory) {
  // Copied first: the default's text lives only until the next setter call.
  std::string chosen = directory.empty() ? ZNStoreGetDirectory() : directory;
  ZNStoreSetDirectory(chosen.c_str());
}

void makeStoreDirectory() {
  const std::string store = ZNStoreGetDirectory();
  struct stat info {};
  if (stat(store.c_str(), &info) == 0 || errno != ENOENT) return;  // the open tells what it is
  // Walked from the root one component at a time, each opened without
  // following a link, so that no link swapped in on the way is followed.
  std::filesystem::path absolute = std::filesystem::absolute(store).lexically_normal();
  Directory current{::open("/", O_DIRECTORY | O_RDONLY | O_CLOEXEC)};
  std::filesystem::path walked = "/";
  for (const auto &component : absolute.relative_path()) {
    if (component.empty()) continue;
    walked /= component;
    const char *name = component.c_str();
    if (mkdirat(current.fd, name, 0700) != 0 && errno != EEXIST) {
      storeFailure("cannot make the store directory " + walked.string() + ": " +
                   std::strerror(errno));
    }
    if (fstatat(current.fd, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
      storeFailure("cannot make the store directory " + walked.string() + ": " +
                   std::strerror(errno));
    }
    if (S_ISLNK(info.st_mode)) {
      storeFailure("will not make the store through " + walked.string() +
                   ", a symbolic link: name the directory it points to");
    }
    if (!S_ISDIR(info.st_mode)) storeFailure(walked.string() + " is not a directory");
    if (info.st_uid != 0 && info.st_uid != geteuid()) {
      storeFailure("will not make the store through " + walked.string() +
                   ", a directory another user owns");
    }
    Directory next{openat(current.fd, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC)};
    if (next.fd < 0) {
      storeFailure("cannot make the store directory " + walked.string() + ": " +
                   std::strerror(errno));
    }
    std::swap(current.fd, next.fd);
  }
}

Ref<ZNPreferencesRef> openPreferences() {
  const std::string store = ZNStoreGetDirectory();
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(store.c_str()));
  if (prefs) return prefs;
  std::string platform = platformError();
  struct stat info {};
  if (stat(store.c_str(), &info) != 0) {
    if (errno == ENOENT) storeFailure("no store at " + store + ": nothing was installed there");
    storeFailure("cannot open the store " + store + ": " + std::strerror(errno));
  }
  if (!S_ISDIR(info.st_mode)) storeFailure("the store " + store + " is not a directory");
  storeFailure("cannot open the store " + store + ": " + platform);
}

void setLockWait(double seconds) { lockWait = seconds; }

void lockPreferences(ZNPreferencesRef prefs) {
  if (tryLock(prefs)) return;
  if (lockWait == 0) {
    throw Failure(Exit::lock, "another process holds the preferences lock (--no-wait)");
  }
  note("waiting for another process to release the preferences lock...");
  if (lockWait < 0) {
    for (int attempt = 0;; ++attempt) {
      if (JXVPNPreferencesLock(prefs)) return;
      if (ZNError() != kZNStatusStale || attempt == kStaleRetries) break;
      (void)ZNPreferencesSynchronize(prefs);
    }
    throw Failure(Exit::lock, "cannot lock the preferences: " + platformError());
  }
  using Clock = std::chrono::steady_clock;
  auto deadline = Clock::now() + std::chrono::duration<double>(lockWait);
  while (Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (tryLock(prefs)) return;
  }
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%g", lockWait);
  throw Failure(Exit::lock, std::string("another process held the preferences lock for ") +
                                seconds + " seconds; gave up");
}

std::vector<Ref<ZNNetworkServiceRef>> vpnServices(ZNPreferencesRef prefs) {
  auto all = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs));
  std::vector<Ref<ZNNetworkServiceRef>> services;
  for (PVIndex i = 0; i < PVArrayGetCount(all.get()); ++i) {
    services.push_back(
        Ref<ZNNetworkServiceRef>::retain(elementAt<ZNNetworkServiceRef>(all.get(), i)));
  }
  return services;
}

std::vector<Ref<ZNNetworkServiceRef>> servicesNamed(ZNPreferencesRef prefs,
                                                    const std::string &name) {
  std::vector<Ref<ZNNetworkServiceRef>> named;
  for (auto &service : vpnServices(prefs)) {
    if (serviceName(service.get()) == name) named.push_back(service);
  }
  return named;
}

std::string ServiceArgument::text() const {
  if (!id.empty()) return id;
  if (!name.empty()) return name;
  if (!file.empty()) return file;
  return any;
}

Ref<ZNNetworkServiceRef> serviceWithID(ZNPreferencesRef prefs, const std::string &id) {
  auto text = Ref<PVStringRef>::adopt(PVStringCreateWithCString(id.c_str()));
  if (!text) return {};
  auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs, text.get()));
  return service && JXVPNServiceGetType(service.get()) ? service : Ref<ZNNetworkServiceRef>();
}

Ref<ZNNetworkServiceRef> findService(ZNPreferencesRef prefs, const ServiceArgument &argument) {
  if (argument.text().empty()) {
    throw Failure(Exit::usage, "name a service: SERVICE, --id ID or --name NAME");
  }
  if (argument.name.empty()) {
    if (auto byID = serviceWithID(prefs, argument.text())) return byID;
    if (!argument.id.empty()) {
      throw Failure(Exit::notFound, "no VPN service has the identifier \"" + argument.id + "\"");
    }
  }
  std::string name = argument.text();
  auto named = servicesNamed(prefs, name);
  if (named.empty()) {
    throw Failure(Exit::notFound, argument.name.empty()
                                      ? "no VPN service has the identifier or name \"" + name + "\""
                                      : "no VPN service has the name \"" + name + "\"");
  }
  if (named.size() > 1) {
    std::string ids;
    for (auto &service : named) ids.append(" ").append(serviceID(service.get()));
    throw Failure(Exit::failure,
                  "several VPN services are named \"" + name + "\"; use --id:" + ids);
  }
  return named.front();
}

std::string serviceID(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetServiceID(service));
}

std::string serviceName(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetName(service));
}

std::string vendorType(ZNNetworkServiceRef service) {
  if (!PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN)) return "";
  ZNNetworkInterfaceRef vendor =
      ZNNetworkInterfaceGetInterface(ZNNetworkServiceGetInterface(service));
  return textOf(ZNNetworkInterfaceGetInterfaceType(vendor));
}

}  // namespace tarnwick
