// The content of a store as a session holds it: sets, services and set
// memberships in their stored order, each found by identifier in O(1), with
// what changed since the snapshot so that a commit writes only that.
//
// Property values in it are immutable and shared with callers through Get
// operations, so a value is replaced, never changed in place.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
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

struct Layer {
  StringRef type;
  DictionaryRef configuration;                    // null when none
  std::map<std::string, DictionaryRef> extended;  // by entity type
};

struct Protocol {
  StringRef type;
  DictionaryRef configuration;  // null when none
};

// A service's interface chain and protocols: the part of its row that is
// decoded only when first used.
struct ServiceBody {
  std::vector<Layer> chain;         // outermost first, never empty
  std::vector<Protocol> protocols;  // in the order they were added

  Protocol *findProtocol(std::string_view type);
  // A chain of typed layers and protocols of distinct types.
  bool isWhole() const;
};

// The rows of one table: kept in position order (the order they were
// added), found by identifier, with the positions written and removed since
// the snapshot. Positions are the table's keys in the database; a new row
// takes one above every other, so the stored order is the session's order.
template <typename T>
class Rows {
 public:
  struct Row {
    std::string id;
    T value;
  };

  Rows() = default;
  // The index points into the rows: a move keeps them, a copy would not.
  Rows(Rows &&) = default;
  Rows &operator=(Rows &&) = default;
  Rows(const Rows &) = delete;
  Rows &operator=(const Rows &) = delete;

  T *find(std::string_view id) {
    auto found = index_.find(id);
    return found == index_.end() ? nullptr : &found->second->second.value;
  }
  const T *find(std::string_view id) const { return const_cast<Rows *>(this)->find(id); }

  // A row read from the snapshot; false when its identifier or position is
  // taken already.
  bool load(int64_t position, std::string id, T value) {
    auto [row, added] = rows_.try_emplace(position, Row{std::move(id), std::move(value)});
    if (!added) return false;
    if (index_.try_emplace(row->second.id, row).second) return true;
    rows_.erase(row);
    return false;
  }
  // A new row at `position`, which must be above every other.
  T &add(int64_t position, std::string id, T value) {
    auto row = rows_.emplace_hint(rows_.end(), position, Row{std::move(id), std::move(value)});
    index_.emplace(row->second.id, row);
    written_.insert(position);
    added_.insert(position);
    return row->second.value;
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
    auto row = found->second;
    index_.erase(found);
    rows_.erase(row);
    return true;
  }

  auto begin() const { return rows_.begin(); }
  auto end() const { return rows_.end(); }
  auto begin() { return rows_.begin(); }
  auto end() { return rows_.end(); }
  size_t size() const { return rows_.size(); }
  int64_t nextPosition() const { return rows_.empty() ? 1 : rows_.rbegin()->first + 1; }

  // What a commit writes: rows to insert or replace, positions to delete.
  const std::set<int64_t> &written() const { return written_; }
  const std::vector<int64_t> &removed() const { return removed_; }
  const Row &at(int64_t position) const { return rows_.at(position); }
  bool changed() const { return !written_.empty() || !removed_.empty(); }
  void committed() {
    written_.clear();
    added_.clear();
    removed_.clear();
  }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  using Map = std::map<int64_t, Row>;

  Map rows_;
  std::unordered_map<std::string_view, typename Map::iterator, Hash, std::equal_to<>> index_;
  std::set<int64_t> written_;
  std::set<int64_t> added_;
  std::vector<int64_t> removed_;
};

class Service {
 public:
  // A new service, its body decoded.
  Service(StringRef id, ServiceBody body);
  // A service of the snapshot: its body stays encoded (in the snapshot's
  // arena) until first used.
  Service(StringRef id, StringRef name, bool enabled, std::string_view encodedBody);

  // Throws kZNStatusCorruptStore when the stored body does not decode.
  ServiceBody &body();
  // Null while the body is still encoded.
  const ServiceBody *decodedBody() const { return body_ ? &*body_ : nullptr; }
  // The body as a commit stores it.
  std::string encodedBody() const;

  StringRef id;
  StringRef name;  // null when unnamed
  bool enabled = true;
  // The session's handle of the outer layer, once asked for: the session
  // owns it and outlives this copy of the service.
  ZNNetworkInterfaceRef outerLayer = nullptr;

 private:
  std::optional<ServiceBody> body_;
  std::string_view encoded_;  // the row's bytes until decoded
};

// Bytes kept for the life of a snapshot, packed into large blocks rather
// than one allocation each: the encoded service bodies. What it hands out
// stays where it is.
class Arena {
 public:
  std::string_view keep(std::string_view bytes);

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  size_t used_ = 0;
  size_t capacity_ = 0;
};

struct Member {};  // a set membership: its identifier is the service's

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
  void addMember(Set &set, std::string_view serviceId);
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
StringRef newIdentifier();

}  // namespace zn
