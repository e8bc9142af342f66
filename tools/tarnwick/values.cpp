#include "values.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.hpp"
#include "tarnwick/platform/json.h"

namespace tarnwick {
namespace {

template <typename T>
using Ref = pv::Ref<T>;

constexpr off_t kMaxFileBytes = 1 << 20;

PVDataRef refuse(PVStringRef *reason, const std::string &why) {
  *reason = PVStringCreateWithCString(why.c_str());
  return nullptr;
}

// {"$file": …}: the bytes of a regular file of at most 1 MiB inside the
// payload's folder (links resolved first), so that a payload from elsewhere
// cannot pull in /etc/shadow, wait on a FIFO or read /dev/zero forever.
PVDataRef readFile(PVStringRef name, void *context, PVStringRef *reason) {
  const auto &source = *static_cast<const JsonSource *>(context);
  std::filesystem::path relative = PVStringGetCStringPtr(name);
  std::string quoted = "the \"$file\" \"" + relative.string() + "\"";
  if (relative.is_absolute()) return refuse(reason, quoted + " is not relative to the payload");
  std::error_code error;
  std::filesystem::path folder = std::filesystem::canonical(source.directory, error);
  std::filesystem::path file =
      error ? folder : std::filesystem::canonical(source.directory / relative, error);
  if (error) return refuse(reason, "cannot read " + quoted + ": " + error.message());
  std::filesystem::path inside = file.lexically_relative(folder);
  if (inside.empty() || *inside.begin() == "..") {
    return refuse(reason, quoted + " is outside the payload's folder");
  }
  int fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return refuse(reason, "cannot read " + quoted + ": " + std::strerror(errno));
  struct stat info {};
  std::string bytes;
  std::string problem;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    problem = quoted + " is not a regular file";
  } else if (info.st_size > kMaxFileBytes) {
    problem = quoted + " is larger than 1 MiB";
  } else {
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) != 0;) {
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        problem = "cannot read " + quoted + ": " + std::strerror(errno);
        break;
      }
      bytes.append(buffer, static_cast<size_t>(n));
      if (bytes.size() > static_cast<size_t>(kMaxFileBytes)) {
        problem = quoted + " is larger than 1 MiB";
        break;
      }
    }
  }
  ::close(fd);
  if (!problem.empty()) return refuse(reason, problem);
  return PVDataCreate(reinterpret_cast<const uint8_t *>(bytes.data()),
                      static_cast<PVIndex>(bytes.size()));
}

// The size of the data a {"$data": …} object stands for.
size_t dataSize(const Json &node) {
  const auto &encoded = node["$data"].get_ref<const std::string &>();
  auto text = Ref<PVStringRef>::adopt(PVStringCreateWithCString(encoded.c_str()));
  auto data = Ref<PVDataRef>::adopt(PVDataCreateWithBase64String(text.get()));
  return static_cast<size_t>(PVDataGetLength(data.get()));
}

}  // namespace

Ref<PVStringRef> makeString(const std::string &utf8) {
  auto string = Ref<PVStringRef>::adopt(PVStringCreateWithCString(utf8.c_str()));
  if (!string) throw Failure(Exit::failure, "text that is not UTF-8: cannot make a string of it");
  return string;
}

Ref<PVTypeRef> valueFromJsonText(const std::string &text, const JsonSource &source,
                                 bool *notJson) {
  PVJSONError error;
  auto value = Ref<PVTypeRef>::adopt(PVCreateWithJSONText(
      text.data(), static_cast<PVIndex>(text.size()), readFile,
      const_cast<JsonSource *>(&source), &error));
  if (value) return value;
  auto path = Ref<PVStringRef>::adopt(error.path);
  auto reason = Ref<PVStringRef>::adopt(error.reason);
  if (!path && notJson) {
    *notJson = true;
    return {};
  }
  std::string where =
      !path ? ":" + std::to_string(error.line) + ":" + std::to_string(error.column)
            : PVStringGetLength(path.get()) == 0 ? "" : " at " + textOf(path.get());
  throw Failure(Exit::malformedPayload, source.name + where + ": " + textOf(reason.get()));
}

Json jsonFromValue(PVTypeRef value) {
  if (!value) return nullptr;
  if (auto text = Ref<PVStringRef>::adopt(PVCreateJSONString(value))) {
    return Json::parse(PVStringGetCStringPtr(text.get()));
  }
  // No JSON form (a set, a handle): its description.
  auto description = Ref<PVStringRef>::adopt(PVCopyDescription(value));
  return textOf(description.get());
}

bool isDataJson(const Json &json) {
  return json.is_object() && json.size() == 1 && json.contains("$data") &&
         json["$data"].is_string();
}

std::string tableText(const Json &json) {
  if (json.is_string()) return json.get<std::string>();
  if (json.is_null()) return "-";
  if (isDataJson(json)) {
    // Built by appending: GCC 12 at -O3 reports a false -Wrestrict for a
    // literal prepended to a temporary string.
    std::string text("<");
    text.append(std::to_string(dataSize(json))).append(" bytes>");
    return text;
  }
  if (!json.is_structured()) return json.dump();
  if (json.empty()) return "(empty)";
  std::string text;
  for (const auto &[key, item] : json.items()) {
    if (!text.empty()) text += ", ";
    if (json.is_object()) text += key + "=";
    text += item.is_structured() && !isDataJson(item) ? "(" + tableText(item) + ")" : tableText(item);
  }
  return text;
}

std::string tableText(PVTypeRef value) { return value ? tableText(jsonFromValue(value)) : ""; }

std::string textOf(PVTypeRef value) {
  if (!value || PVGetTypeID(value) != PVStringGetTypeID()) return "";
  return PVStringGetCStringPtr(static_cast<PVStringRef>(value));
}

std::string bytesOf(PVTypeRef value) {
  if (!value || PVGetTypeID(value) != PVDataGetTypeID()) return "";
  auto data = static_cast<PVDataRef>(value);
  return std::string(reinterpret_cast<const char *>(PVDataGetBytePtr(data)),
                     static_cast<size_t>(PVDataGetLength(data)));
}

std::string kindOf(PVTypeRef value) {
  PVTypeID type = PVGetTypeID(value);
  if (type == PVStringGetTypeID()) return "a string";
  if (type == PVDataGetTypeID()) return "data";
  if (type == PVNumberGetTypeID()) return "a number";
  if (type == PVBooleanGetTypeID()) return "a boolean";
  if (type == PVArrayGetTypeID()) return "an array";
  if (type == PVDictionaryGetTypeID()) return "a dictionary";
  return "another kind of value";
}

}  // namespace tarnwick
