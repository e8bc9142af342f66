// Lookups and whole-document edits of the store's content.
#include "platform/prefs/model.hpp"

#include <algorithm>
#include <new>
#include <set>

#include "platform/prefs/error.hpp"
#include "platform/support/uuid.hpp"

namespace zn {
namespace {

template <typename T>
T *findById(std::vector<T> &items, std::string_view id) {
  auto it = std::find_if(items.begin(), items.end(),
                         [&](const T &item) { return text(item.id.get()) == id; });
  return it == items.end() ? nullptr : &*it;
}

}  // namespace

std::string_view text(PVStringRef string) {
  return std::string_view(PVStringGetCStringPtr(string),
                          static_cast<size_t>(PVStringGetUTF8Length(string)));
}

StringRef makeString(std::string_view text) {
  auto string = StringRef::adopt(
      PVStringCreateWithBytes(reinterpret_cast<const uint8_t *>(text.data()),
                              static_cast<PVIndex>(text.size()), kPVStringEncodingUTF8));
  if (!string) throw std::bad_alloc();
  return string;
}

StringRef copyString(PVStringRef string) {
  auto copy = StringRef::adopt(PVStringCreateCopy(string));
  if (!copy) throw std::bad_alloc();
  return copy;
}

Protocol *Service::findProtocol(std::string_view type) {
  auto it = std::find_if(protocols.begin(), protocols.end(),
                         [&](const Protocol &p) { return text(p.type.get()) == type; });
  return it == protocols.end() ? nullptr : &*it;
}

Service *Document::findService(std::string_view id) { return findById(services, id); }

Set *Document::findSet(std::string_view id) { return findById(sets, id); }

void Document::removeService(std::string_view view) {
  const std::string id(view);  // `view` may point into the service being erased
  std::erase_if(services, [&](const Service &s) { return text(s.id.get()) == id; });
  for (Set &set : sets) {
    std::erase(set.services, id);
    if (set.selected == id) set.selected.clear();
  }
}

void Document::removeSet(std::string_view view) {
  const std::string id(view);
  std::erase_if(sets, [&](const Set &s) { return text(s.id.get()) == id; });
  if (currentSet == id) currentSet.clear();
}

bool Document::isWhole() const {
  std::set<std::string_view> serviceIds, setIds;
  for (const Service &service : services) {
    if (!service.id || !serviceIds.insert(text(service.id.get())).second) return false;
    if (service.chain.empty()) return false;
    for (const Layer &layer : service.chain) {
      if (!layer.type) return false;
    }
    std::set<std::string_view> protocolTypes;
    for (const Protocol &protocol : service.protocols) {
      if (!protocol.type || !protocolTypes.insert(text(protocol.type.get())).second) return false;
    }
  }
  for (const Set &set : sets) {
    if (!set.id || !setIds.insert(text(set.id.get())).second) return false;
    std::set<std::string_view> members;
    for (const std::string &member : set.services) {
      if (!serviceIds.count(member) || !members.insert(member).second) return false;
    }
    if (!set.selected.empty() && !serviceIds.count(set.selected)) return false;
  }
  return generation > 0 && (currentSet.empty() || setIds.count(currentSet));
}

Document initialDocument() {
  Document document;
  document.generation = 1;
  Set set;
  set.id = newIdentifier();
  set.name = makeString("Default");
  document.currentSet = text(set.id.get());
  document.sets.push_back(std::move(set));
  return document;
}

StringRef newIdentifier() {
  std::string uuid = pv::randomUuid();
  if (uuid.empty()) fail(kZNStatusFailed);
  return makeString(uuid);
}

}  // namespace zn
