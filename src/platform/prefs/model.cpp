// Lookups and edits of a session's content.
#include "platform/prefs/model.hpp"

#include <algorithm>
#include <new>

#include "platform/prefs/error.hpp"
#include "platform/prefs/service_body.hpp"
#include "platform/prefs/uuid.hpp"

namespace zn {

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

Protocol *ServiceBody::findProtocol(std::string_view type) {
  auto it = std::find_if(protocols.begin(), protocols.end(),
                         [&](const Protocol &p) { return text(p.type.get()) == type; });
  return it == protocols.end() ? nullptr : &*it;
}

bool ServiceBody::isWhole() const {
  if (chain.empty()) return false;
  for (const Layer &layer : chain) {
    if (!layer.type) return false;
  }
  return protocolsAreWhole(protocols);
}

bool protocolsAreWhole(const std::vector<Protocol> &protocols) {
  for (auto p = protocols.begin(); p != protocols.end(); ++p) {
    if (!p->type) return false;
    for (auto q = protocols.begin(); q != p; ++q) {
      if (text(q->type.get()) == text(p->type.get())) return false;
    }
  }
  return true;
}

Service::Service(StringRef serviceId, ServiceBody body)
    : id(std::move(serviceId)), body_(std::move(body)) {}

Service::Service(StringRef serviceId, StringRef serviceName, bool isEnabled,
                 std::string_view encodedBody, Arena &arena)
    : id(std::move(serviceId)),
      name(std::move(serviceName)),
      enabled(isEnabled),
      encoded_(encodedBody),
      arena_(&arena) {}

void Service::readOutline() {
  if (body_) return;
  body_ = decodeServiceBody(encoded_, *arena_, &types_);
  if (types_.empty()) encoded_ = {};  // read whole
}

ServiceBody &Service::body() {
  readOutline();
  if (!types_.empty()) {
    // The protocols read before stay: what was read from them is handed out.
    body_->chain = decodeServiceChain(encoded_, *arena_, types_);
    types_.clear();
    encoded_ = {};
  }
  return *body_;
}

size_t Service::layerCount() {
  readOutline();
  return types_.empty() ? body_->chain.size() : types_.size();
}

PVStringRef Service::layerType(size_t depth) {
  readOutline();
  return types_.empty() ? body_->chain.at(depth).type.get() : types_.at(depth);
}

std::vector<Protocol> &Service::protocols() {
  readOutline();
  return body_->protocols;
}

Protocol *Service::findProtocol(std::string_view type) {
  readOutline();
  return body_->findProtocol(type);
}

// Only changes read a body whole, so one not read whole is as it is stored.
std::string Service::encodedBody() const {
  return decodedBody() ? encodeServiceBody(*body_) : std::string(encoded_);
}

std::string_view Arena::keep(std::string_view bytes) {
  constexpr size_t kBlockSize = 256 * 1024;
  if (bytes.empty()) return {};  // there may be no block yet to point into
  if (capacity_ - used_ < bytes.size()) {
    capacity_ = std::max(kBlockSize, bytes.size());
    blocks_.emplace_back(new char[capacity_]);  // left uninitialised: every byte is copied over
    used_ = 0;
  }
  char *kept = blocks_.back().get() + used_;
  std::copy(bytes.begin(), bytes.end(), kept);
  used_ += bytes.size();
  return std::string_view(kept, bytes.size());
}

PVStringRef Arena::name(std::string_view text) {
  auto found = names_.find(text);
  if (found != names_.end()) return found->second.get();
  auto string = StringRef::adopt(
      PVStringCreateWithBytes(reinterpret_cast<const uint8_t *>(text.data()),
                              static_cast<PVIndex>(text.size()), kPVStringEncodingUTF8));
  if (!string) return nullptr;
  return names_.emplace(std::string(text), std::move(string)).first->second.get();
}

Service &Document::addService(Service service) {
  const std::string_view id = text(service.id.get());  // the service's own string keeps it
  return services.add(services.nextPosition(), id, std::move(service));
}

Set &Document::addSet(StringRef id) {
  Set set;
  set.id = std::move(id);
  const std::string_view key = text(set.id.get());
  return sets.add(sets.nextPosition(), key, std::move(set));
}

void Document::addMember(Set &set, Service &service) {
  set.members.add(nextMember++, text(service.id.get()), Member{&service});
}

void Document::removeService(std::string_view view) {
  const std::string id(view);  // `view` may point into the service being erased
  // Memberships first: they point at the service.
  for (auto &[position, row] : sets) {
    Set &set = row.value;
    set.members.remove(id);
    if (set.selected == id) {
      set.selected.clear();
      sets.touch(row.id);
    }
  }
  services.remove(id);
}

void Document::removeSet(std::string_view view) {
  const std::string id(view);
  sets.remove(id);
  if (currentSet == id) {
    currentSet.clear();
    currentSetChanged = true;
  }
}

bool Document::modified() const {
  if (currentSetChanged || sets.changed() || services.changed()) return true;
  return std::any_of(sets.begin(), sets.end(),
                     [](const auto &entry) { return entry.second.value.members.changed(); });
}

void Document::committed(int64_t newGeneration) {
  generation = newGeneration;
  currentSetChanged = false;
  sets.committed();
  services.committed();
  for (auto &entry : sets) entry.second.value.members.committed();
}

bool Document::isWhole() const {
  for (const auto &[position, row] : sets) {
    for (const auto &member : row.value.members) {
      if (!services.find(member.second.id)) return false;
    }
    if (!row.value.selected.empty() && !services.find(row.value.selected)) return false;
  }
  return generation > 0 && (currentSet.empty() || sets.find(currentSet));
}

StringRef newIdentifier() {
  std::string uuid = pv::randomUuid();
  if (uuid.empty()) fail(kZNStatusFailed);
  return makeString(uuid);
}

}  // namespace zn
