#include "values.hpp"

#include <fstream>
#include <functional>
#include <iterator>

#include "failure.hpp"
#include "tarnwick/platform/json.h"

namespace tarnwick {
namespace {

template <typename T>
using Ref = pv::Ref<T>;

// {"$file": …}: the bytes of the file, relative to the payload's directory.
PVDataRef readFile(PVStringRef name, void *context, PVStringRef *reason) {
  const auto &source = *static_cast<const JsonSource *>(context);
  std::filesystem::path file = source.directory / PVStringGetCStringPtr(name);
  std::ifstream in(file, std::ios::binary);
  std::string bytes;
  if (in) bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (!in || in.bad()) {
    *reason = PVStringCreateWithCString(("cannot read the \"$file\" " + file.string()).c_str());
    return nullptr;
  }
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

std::string tableText(const Json &json) {
  if (json.is_string()) return json.get<std::string>();
  auto isData = [](const Json &node) {
    return node.is_object() && node.size() == 1 && node.contains("$data") &&
           node["$data"].is_string();
  };
  auto size = [](const Json &node) {
    // Built by appending: GCC 12 at -O3 reports a false -Wrestrict for a
    // literal prepended to a temporary string.
    std::string text("<");
    text.append(std::to_string(dataSize(node))).append(" bytes>");
    return text;
  };
  if (isData(json)) return size(json);
  Json shortened = json;
  std::function<void(Json &)> shorten = [&](Json &node) {
    if (isData(node)) {
      node = size(node);
    } else if (node.is_structured()) {
      for (auto &child : node) shorten(child);
    }
  };
  shorten(shortened);
  return shortened.dump();
}

std::string tableText(PVTypeRef value) { return value ? tableText(jsonFromValue(value)) : ""; }

std::string textOf(PVTypeRef value) {
  if (!value || PVGetTypeID(value) != PVStringGetTypeID()) return "";
  return PVStringGetCStringPtr(static_cast<PVStringRef>(value));
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
