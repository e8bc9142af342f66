// The content of a store as a session holds it: sets, services and set
// memberships in their stored order, each found by identifier in O(1), with
// what changed since the snapshot so that a commit writes only that.
//
// Property values in it are immutable and shared with callers through Get
// operations, so a value is replaced, never changed in place.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"

namespace zn {

using StringRef = pv::Ref<PVStringRef>;
using DictionaryRef = pv::Ref<PVDictionaryRef>;

std::string_view text(PVStringRef string);
// A new string for `text` (which must be UTF-8 without U+0000), held.
StringRef makeString(std::string_view text);
// An immutable copy of `string` (the string itself when it is immutable).
StringRef copyString(PVStringRef string);

// Hashes text of any string type alike, so that maps keyed by std::string
// can be searched with a std::string_view.
struct TextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

class Arena;

// A configuration dictionary of a service: made by a setter, or still in
// the form its row stores it, decoded when first read. Reading a service's
// types, or one of its configurations, decodes nothing else of it: that is
// what keeps listing and matching a large store's services cheap.
class Configuration {
 public:
  Configuration() = default;  // none
  Configuration(DictionaryRef dictionary) : decoded_(std::move(dictionary)) {}
  // The stored JSON text of a dictionary, kept in `arena`.
  Configuration(std::string_view stored, Arena &arena) : stored_(stored), arena_(&arena) {}
  // A copy is decoded: it may outlive the arena of the original.
  Configuration(const Configuration &other) : decoded_(DictionaryRef::retain(other.get())) {}
  Configuration &operator=(const Configuration &other) {
    return *this = Configuration(DictionaryRef::retain(other.get()));
  }
  Configuration(Configuration &&) = default;
  Configuration &operator=(Configuration &&) = default;

  explicit operator bool() const { return decoded_ || arena_; }
  // Null for none; throws kZNStatusCorruptStore when the stored text is no
  // dictionary.
  PVDictionaryRef get() const;
  // The stored text while it is not decoded, else empty: a commit writes it
  // back as it is.
  std::string_view stored() const { return decoded_ ? std::string_view() : stored_; }

 private:
  mutable DictionaryRef decoded_;
  std::string_view stored_;
  Arena *arena_ = nullptr;  // set while there is a stored text
};

struct Layer {
  StringRef type;
  Configuration configuration;                    // none when none
  std::map<std::string, Configuration> extended;  // by entity type
};

struct Protocol {
  StringRef type;
  Configuration configuration;  // none when none
};

// A service's interface chain and protocols: the part of its row that is
// decoded only when first used, its configurations only when first read.
struct ServiceBody {
  std::vector<Layer> chain;         // outermost first, never empty
  std::vector<Protocol> protocols;  // in the order they were added

  Protocol *findProtocol(std::string_view type);
  // A chain of typed layers and protocols of distinct types.
  [[nodiscard]] bool isWhole() const;
};

// Typed protocols of distinct types.
[[nodiscard]] bool protocolsAreWhole(const std::vector<Protocol> &protocols);

// The rows of one table: kept in position order (the order they were
// added), found by identifier, with the positions written and removed since
// the snapshot. Positions are the table's keys in the database; a new row
// takes one above every other, so the stored order is the session's order.
//
// Rows live apart and are listed in one array of pointers: their addresses
// never change, and walking them issues independent loads rather than the
// chain of dependent ones a tree walk makes, which is what listing a large
// store costs. Taking a row out moves the pointers after it, a small cost
// next to the commit that follows.
//
// A row's identifier is a view of text its value holds (or that outlives
// the value, as a membership's service does), so that it is not kept twice.
template <typename T>
class Rows {
 public:
  struct Row {
    std::string_view id;
    T value;
  };
  using Entry = std::pair<const int64_t, Row>;

  template <typename E, typename Slot>
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = E *;
    using reference = E &;

    Iterator() = default;
    explicit Iterator(Slot slot) : slot_(slot) {}
    E &operator*() const { return **slot_; }
    E *operator->() const { return slot_->get(); }
    Iterator &operator++() {
      ++slot_;
      return *this;
    }
    Iterator operator++(int) { return Iterator(slot_++); }
    bool operator==(const Iterator &) const = default;

   private:
    Slot slot_{};
  };
  using Slots = std::vector<std::unique_ptr<Entry>>;
  using iterator = Iterator<Entry, typename Slots::const_iterator>;
  using const_iterator = Iterator<const Entry, typename Slots::const_iterator>;

  Rows() = default;
  Rows(Rows &&) = default;
  Rows &operator=(Rows &&) = default;
  Rows(const Rows &) = delete;
  Rows &operator=(const Rows &) = delete;

  T *find(std::string_view id) {
    auto found = index_.find(id);
    return found == index_.end() ? nullptr : &found->second->second.value;
  }
  const T *find(std::string_view id) const { return const_cast<Rows *>(this)->find(id); }

  // A row read from the snapshot, which reads rows in position order; false
  // when its identifier is taken or its position is not above every other.
  [[nodiscard]] bool load(int64_t position, std::string_view id, T value) {
    if (!rows_.empty() && position <= rows_.back()->first) return false;
    return append(position, id, std::move(value)) != nullptr;
  }
  // A new row at `position`, which must be above every other, for an
  // identifier no row has.
  T &add(int64_t position, std::string_view id, T value) {
    Entry *entry = append(position, id, std::move(value));
    if (!entry) throw std::logic_error("a row with that identifier exists");
    written_.insert(position);
    added_.insert(position);
    return entry->second.value;
  }
  // Marks an existing row for writing.
  void touch(std::string_view id) { written_.insert(index_.at(id)->first); }
  // False when there is no such row.
  bool remove(std::string_view id) {
    auto found = index_.find(id);
    if (found == index_.end()) return false;
    const int64_t position = found->second->first;
    written_.erase(position);
    // A row added since the snapshot never reached the database.
    if (!added_.erase(position)) removed_.push_back(position);
    index_.erase(found);
    rows_.erase(slotAt(position));
    return true;
  }

  iterator begin() { return iterator(rows_.cbegin()); }
  iterator end() { return iterator(rows_.cend()); }
  const_iterator begin() const { return const_iterator(rows_.cbegin()); }
  const_iterator end() const { return const_iterator(rows_.cend()); }
  size_t size() const { return rows_.size(); }
  int64_t nextPosition() const { return rows_.empty() ? 1 : rows_.back()->first + 1; }

  // What a commit writes: rows to insert or replace, positions to delete.
  const std::set<int64_t> &written() const { return written_; }
  const std::vector<int64_t> &removed() const { return removed_; }
  const Row &at(int64_t position) const {
    auto slot = slotAt(position);
    if (slot == rows_.end()) throw std::out_of_range("no row at that position");
    return (*slot)->second;
  }
  bool changed() const { return !written_.empty() || !removed_.empty(); }
  void committed() {
    written_.clear();
    added_.clear();
    removed_.clear();
  }

 private:
  // Null, and nothing added, when the identifier is taken.
  Entry *append(int64_t position, std::string_view id, T value) {
    // Room first, so that a failure below leaves nothing behind.
    if (rows_.size() == rows_.capacity()) rows_.reserve(std::max<size_t>(16, rows_.size() * 2));
    auto entry = std::make_unique<Entry>(position, Row{id, std::move(value)});
    if (!index_.emplace(entry->second.id, entry.get()).second) return nullptr;
    rows_.push_back(std::move(entry));
    return rows_.back().get();
  }
  // The slot of the row at `position`, or the end.
  typename Slots::const_iterator slotAt(int64_t position) const {
    auto slot = std::lower_bound(
        rows_.begin(), rows_.end(), position,
        [](const std::unique_ptr<Entry> &entry, int64_t p) { return entry->first < p; });
    return slot != rows_.end() && (*slot)->first == position ? slot : rows_.end();
  }

  Slots rows_;  // in position order
  std::unordered_map<std::string_view, Entry *, TextHash, std::equal_to<>> index_;
  std::set<int64_t> written_;
  std::set<int64_t> added_;
  std::vector<int64_t> removed_;
};

class Service {
 public:
  // A new service, its body decoded.
  Service(StringRef id, ServiceBody body);
  // A service of the snapshot: its body stays encoded (in the snapshot's
  // arena, which outlives it) until first used.
  Service(StringRef id, StringRef name, bool enabled, std::string_view encodedBody,
          class Arena &arena);

  // Each throws kZNStatusCorruptStore when what it reads does not decode.
  // The whole body, for a change or for a layer itself.
  ServiceBody &body();
  // The layer types and the protocols, which a stored body gives without
  // reading its interfaces: what telling a service's kind, or reading a
  // protocol, needs.
  size_t layerCount();
  PVStringRef layerType(size_t depth);  // outermost first; depth < layerCount()
  std::vector<Protocol> &protocols();
  Protocol *findProtocol(std::string_view type);
  // Null while the body is not read whole.
  const ServiceBody *decodedBody() const { return body_ && types_.empty() ? &*body_ : nullptr; }
  // The body as a commit stores it.
  std::string encodedBody() const;

  StringRef id;
  StringRef name;  // null when unnamed
  bool enabled = true;
  // The session's handle of the outer layer, once asked for: the session
  // owns it and outlives this copy of the service.
  ZNNetworkInterfaceRef outerLayer = nullptr;

 private:
  void readOutline();

  std::optional<ServiceBody> body_;  // the protocols once read, the chain too once read
  std::vector<PVStringRef> types_;   // the layer types while the chain is not read
  std::string_view encoded_;         // the row's bytes until read whole
  Arena *arena_ = nullptr;           // where they are kept
};

// What a snapshot keeps for the life of its services, packed rather than
// allocated one by one: the encoded service bodies, and one string per
// distinct name (layer and protocol types, configuration keys), which
// thousands of services share and a walk over them then finds in the cache.
class Arena {
 public:
  // The bytes, kept where they are.
  std::string_view keep(std::string_view bytes);
  // The one string for `text`, borrowed; null when `text` cannot be a
  // stored string.
  PVStringRef name(std::string_view text);

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  size_t used_ = 0;
  size_t capacity_ = 0;
  std::unordered_map<std::string, StringRef, TextHash, std::equal_to<>> names_;
};

// A set membership: its identifier is the service's. The service outlives
// it (a service leaves every set before it leaves the document), so listing
// a set's services looks none up.
struct Member {
  Service *service;
};

struct Set {
  StringRef id;
  StringRef name;        // null when unnamed
  std::string selected;  // identifier of the selected VPN service, or empty
  Rows<Member> members;  // positions are those of the members table, shared by every set
};

struct Document {
  int64_t generation = 0;
  std::string currentSet;  // empty when no set is current
  bool currentSetChanged = false;
  Rows<Set> sets;
  Rows<Service> services;
  int64_t nextMember = 1;  // the next position in the members table
  std::unique_ptr<Arena> arena = std::make_unique<Arena>();  // the snapshot's service bodies

  Service &addService(Service service);
  Set &addSet(StringRef id);
  void addMember(Set &set, Service &service);
  // Drops the service with every set's membership and selection of it.
  void removeService(std::string_view id);
  // Drops the set and its memberships; no set is current afterwards if it was.
  void removeSet(std::string_view id);

  // Anything to commit.
  bool modified() const;
  // The changes are in the store, which is now at `generation`.
  void committed(int64_t newGeneration);
  // Every membership, selection and the current set name objects of this
  // document and the generation is positive.
  bool isWhole() const;
};

// A fresh random identifier as a string value.
[[nodiscard]] StringRef newIdentifier();

}  // namespace zn
