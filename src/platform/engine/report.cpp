#include "platform/engine/report.hpp"

#include <optional>
#include <unordered_map>
#include <utility>

#include "tarnwick/platform/ref.hpp"

namespace engine {
namespace {

using pv::Ref;

thread_local std::optional<Report> pending;
thread_local ReportToken recorded = 0;  // counts the reports recorded

int strength(Action action) {
  switch (action) {
    case Action::failed:
      return 4;
    case Action::added:
      return 3;
    case Action::updated:
      return 2;
    case Action::unchanged:
      return 1;
    case Action::none:
      return 0;
  }
  return 0;
}

const char *stateName(State state) {
  switch (state) {
    case State::inLine:
      return "in-line";
    case State::outOfDate:
      return "out-of-date";
    case State::cannotExpress:
      return "cannot-express";
    case State::noEngine:
      return "no-engine";
  }
  return "";
}

const char *actionName(Action action) {
  switch (action) {
    case Action::none:
      return "none";
    case Action::added:
      return "added";
    case Action::updated:
      return "updated";
    case Action::unchanged:
      return "unchanged";
    case Action::failed:
      return "failed";
  }
  return "";
}

class DictionaryBuilder {
 public:
  DictionaryBuilder()
      : dictionary_(Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable())) {}
  void text(const char *key, const std::string &value) {
    if (value.empty()) return;
    set(key, Ref<PVTypeRef>::adopt(PVStringCreateWithCString(value.c_str())).get());
  }
  void number(const char *key, size_t value) {
    set(key, Ref<PVTypeRef>::adopt(PVNumberCreateWithInt64(int64_t(value))).get());
  }
  void set(const char *key, PVTypeRef value) {
    auto name = Ref<PVStringRef>::adopt(PVStringCreateWithCString(key));
    if (value) PVDictionarySetValue(dictionary_.get(), name.get(), value);
  }
  PVMutableDictionaryRef get() const { return dictionary_.get(); }
  PVDictionaryRef release() { return dictionary_.release(); }

 private:
  Ref<PVMutableDictionaryRef> dictionary_;
};

Ref<PVArrayRef> textArray(const std::vector<std::string> &texts) {
  auto array = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  for (const auto &text : texts) {
    auto item = Ref<PVStringRef>::adopt(PVStringCreateWithCString(text.c_str()));
    if (item) PVArrayAppendValue(array.get(), item.get());
  }
  return Ref<PVArrayRef>::adopt(array.release());
}

}  // namespace

size_t Report::count(Action action) const {
  size_t n = 0;
  for (const auto &service : services) n += service.action == action;
  return n;
}

size_t Report::count(State state) const {
  size_t n = 0;
  for (const auto &service : services) n += service.state == state;
  return n;
}

PVDictionaryRef Report::createDictionary(Kind kind) const {
  DictionaryBuilder report;
  report.text("Engine", engine);
  report.text("Failure", failure);
  if (kind == sync) {
    report.number("Added", count(Action::added));
    report.number("Updated", count(Action::updated));
    report.number("Unchanged", count(Action::unchanged));
    report.number("Failed", count(Action::failed));
    report.number("Deleted", deleted.size());
    report.set("DeletedServices", textArray(deleted).get());
  } else {
    report.number("Leftover", leftover);
  }
  report.number("CannotExpress", count(State::cannotExpress));
  report.number("InLine", count(State::inLine));
  report.number("OutOfDate", count(State::outOfDate));
  auto list = Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  for (const auto &service : services) {
    DictionaryBuilder entry;
    entry.text("ServiceID", service.id);
    entry.text("Name", service.name);
    entry.text("Type", service.type);
    entry.text("VendorType", service.vendorType);
    entry.text("Plugin", service.plugin);
    entry.text("UUID", service.uuid);
    entry.text("Reason", service.reason);
    entry.text("State", stateName(service.state));
    if (kind == sync) entry.text("Action", actionName(service.action));
    PVArrayAppendValue(list.get(), entry.get());
  }
  report.set("Services", list.get());
  return report.release();
}

void recordReport(Report report) {
  if (pending) {
    std::unordered_map<std::string, Action> earlier;
    for (const auto &service : pending->services) earlier[service.id] = service.action;
    for (auto &service : report.services) {
      auto found = earlier.find(service.id);
      if (found != earlier.end() && strength(found->second) > strength(service.action)) {
        service.action = found->second;
      }
    }
    report.deleted.insert(report.deleted.begin(), pending->deleted.begin(), pending->deleted.end());
  }
  pending = std::move(report);
  ++recorded;
}

ReportToken lastRecorded() { return recorded; }

bool stillPending(ReportToken token) { return pending && token == recorded; }

PVDictionaryRef takeReport() {
  if (!pending) return nullptr;
  PVDictionaryRef dictionary = pending->createDictionary(Report::sync);
  pending.reset();
  return dictionary;
}

}  // namespace engine
