// Arrays, dictionaries and sets. Each retains what it holds, except a set
// made without call-backs, which compares by identity and retains nothing.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/guard/guarded.hpp"
#include "platform/values/object.hpp"

namespace {

struct ValueHash {
  size_t operator()(PVTypeRef v) const { return PVHash(v); }
};
struct ValueEqual {
  bool operator()(PVTypeRef a, PVTypeRef b) const { return PVEqual(a, b); }
};

void describeInto(std::string &out, PVTypeRef value) { pv::object(value)->describe(out); }

}  // namespace

struct PVArray : pv::PVObject {
  explicit PVArray(bool m) : PVObject(pv::Kind::Array, false), isMutable(m) {}
  ~PVArray() override {
    for (PVTypeRef v : items) PVRelease(v);
  }
  bool equals(const PVObject &other) const override {
    const auto &o = static_cast<const PVArray &>(other);
    return items.size() == o.items.size() &&
           std::equal(items.begin(), items.end(), o.items.begin(), ValueEqual{});
  }
  size_t hash() const override { return items.size(); }
  void describe(std::string &out) const override {
    out += '(';
    for (size_t i = 0; i < items.size(); ++i) {
      if (i) out += ", ";
      describeInto(out, items[i]);
    }
    out += ')';
  }
  void append(PVTypeRef v) {
    items.push_back(v);
    PVRetain(v);
  }
  const bool isMutable;
  std::vector<PVTypeRef> items;
};

struct PVDictionary : pv::PVObject {
  explicit PVDictionary(bool m) : PVObject(pv::Kind::Dictionary, false), isMutable(m) {}
  ~PVDictionary() override { clear(); }
  void clear() {
    for (auto &[k, v] : entries) {
      PVRelease(k);
      PVRelease(v);
    }
    entries.clear();
  }
  bool equals(const PVObject &other) const override {
    const auto &o = static_cast<const PVDictionary &>(other);
    if (entries.size() != o.entries.size()) return false;
    for (const auto &[k, v] : entries) {
      auto it = o.entries.find(k);
      if (it == o.entries.end() || !PVEqual(v, it->second)) return false;
    }
    return true;
  }
  size_t hash() const override { return entries.size(); }
  void describe(std::string &out) const override {
    // Sorted by key text, so that a description is stable.
    std::vector<std::pair<std::string, PVTypeRef>> sorted;
    for (const auto &[k, v] : entries) {
      std::string key;
      describeInto(key, k);
      sorted.emplace_back(std::move(key), v);
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const auto &a, const auto &b) { return a.first < b.first; });
    out += '{';
    for (size_t i = 0; i < sorted.size(); ++i) {
      out += i ? "; " : "";
      out += sorted[i].first;
      out += " = ";
      describeInto(out, sorted[i].second);
    }
    out += '}';
  }
  void set(PVTypeRef k, PVTypeRef v) {
    auto it = entries.find(k);
    PVRetain(v);
    if (it != entries.end()) {
      PVRelease(it->second);
      it->second = v;
    } else {
      entries.emplace(PVRetain(k), v);
    }
  }
  const bool isMutable;
  std::unordered_map<PVTypeRef, PVTypeRef, ValueHash, ValueEqual> entries;
};

struct PVSet : pv::PVObject {
  struct Hash {
    bool byValue;
    size_t operator()(PVTypeRef v) const {
      return byValue ? PVHash(v) : std::hash<PVTypeRef>{}(v);
    }
  };
  struct Equal {
    bool byValue;
    bool operator()(PVTypeRef a, PVTypeRef b) const { return byValue ? PVEqual(a, b) : a == b; }
  };
  PVSet(bool m, bool v)
      : PVObject(pv::Kind::Set, false), isMutable(m), byValue(v), members(8, Hash{v}, Equal{v}) {}
  ~PVSet() override {
    if (byValue) {
      for (PVTypeRef m : members) PVRelease(m);
    }
  }
  bool equals(const PVObject &other) const override {
    const auto &o = static_cast<const PVSet &>(other);
    if (members.size() != o.members.size()) return false;
    for (PVTypeRef m : members) {
      if (!o.members.count(m)) return false;
    }
    return true;
  }
  size_t hash() const override { return members.size(); }
  void describe(std::string &out) const override {
    out += "{(";
    bool first = true;
    for (PVTypeRef m : members) {
      out += first ? "" : ", ";
      first = false;
      describeInto(out, m);
    }
    out += ")}";
  }
  void add(PVTypeRef v) {
    if (members.insert(v).second && byValue) PVRetain(v);
  }
  const bool isMutable;
  const bool byValue;
  std::unordered_set<PVTypeRef, Hash, Equal> members;
};

namespace {

template <typename T>
T *as(const void *p, pv::Kind kind) {
  return p && pv::object(p)->kind == kind ? const_cast<T *>(static_cast<const T *>(p)) : nullptr;
}
PVArray *asArray(PVArrayRef a) { return as<PVArray>(a, pv::Kind::Array); }
PVDictionary *asDictionary(PVDictionaryRef d) { return as<PVDictionary>(d, pv::Kind::Dictionary); }
PVSet *asSet(PVSetRef s) { return as<PVSet>(s, pv::Kind::Set); }

using platform::guarded;

}  // namespace

extern "C" {

PVArrayRef PVArrayCreate(const PVTypeRef *values, PVIndex count) noexcept {
  if (count < 0 || (!values && count > 0)) return nullptr;
  return guarded([&]() -> PVArrayRef {
    auto *a = new PVArray(false);
    a->items.reserve(static_cast<size_t>(count));
    for (PVIndex i = 0; i < count; ++i) {
      if (values[i]) a->append(values[i]);
    }
    return a;
  });
}

PVMutableArrayRef PVArrayCreateMutable(void) noexcept {
  return guarded([] { return new PVArray(true); });
}

PVMutableArrayRef PVArrayCreateMutableCopy(PVArrayRef array) noexcept {
  const PVArray *source = asArray(array);
  if (!source) return nullptr;
  return guarded([&] {
    auto *a = new PVArray(true);
    for (PVTypeRef v : source->items) a->append(v);
    return a;
  });
}

PVIndex PVArrayGetCount(PVArrayRef array) noexcept {
  const PVArray *a = asArray(array);
  return a ? static_cast<PVIndex>(a->items.size()) : 0;
}

PVTypeRef PVArrayGetValueAtIndex(PVArrayRef array, PVIndex index) noexcept {
  const PVArray *a = asArray(array);
  if (!a || index < 0 || static_cast<size_t>(index) >= a->items.size()) return nullptr;
  return a->items[static_cast<size_t>(index)];
}

Boolean PVArrayContainsValue(PVArrayRef array, PVTypeRef value) noexcept {
  const PVArray *a = asArray(array);
  if (!a || !value) return false;
  return std::any_of(a->items.begin(), a->items.end(),
                     [&](PVTypeRef v) { return PVEqual(v, value); });
}

void PVArrayAppendValue(PVMutableArrayRef array, PVTypeRef value) noexcept {
  PVArray *a = asArray(array);
  if (!a || !a->isMutable || !value) return;
  guarded([&] { a->append(value); });
}

void PVArrayRemoveValueAtIndex(PVMutableArrayRef array, PVIndex index) noexcept {
  PVArray *a = asArray(array);
  if (!a || !a->isMutable || index < 0 || static_cast<size_t>(index) >= a->items.size()) return;
  PVRelease(a->items[static_cast<size_t>(index)]);
  a->items.erase(a->items.begin() + index);
}

PVDictionaryRef PVDictionaryCreate(const PVTypeRef *keys, const PVTypeRef *values,
                                   PVIndex count) noexcept {
  if (count < 0 || ((!keys || !values) && count > 0)) return nullptr;
  return guarded([&]() -> PVDictionaryRef {
    auto *d = new PVDictionary(false);
    for (PVIndex i = 0; i < count; ++i) {
      if (keys[i] && values[i]) d->set(keys[i], values[i]);
    }
    return d;
  });
}

static PVDictionary *copyDictionary(PVDictionaryRef dictionary, bool isMutable) {
  const PVDictionary *source = asDictionary(dictionary);
  if (!source) return nullptr;
  return guarded([&] {
    auto *d = new PVDictionary(isMutable);
    for (const auto &[k, v] : source->entries) d->set(k, v);
    return d;
  });
}

PVDictionaryRef PVDictionaryCreateCopy(PVDictionaryRef dictionary) noexcept {
  const PVDictionary *source = asDictionary(dictionary);
  if (source && !source->isMutable) return static_cast<PVDictionaryRef>(PVRetain(source));
  return copyDictionary(dictionary, false);
}

PVMutableDictionaryRef PVDictionaryCreateMutable(void) noexcept {
  return guarded([] { return new PVDictionary(true); });
}

PVMutableDictionaryRef PVDictionaryCreateMutableCopy(PVDictionaryRef dictionary) noexcept {
  return copyDictionary(dictionary, true);
}

PVIndex PVDictionaryGetCount(PVDictionaryRef dictionary) noexcept {
  const PVDictionary *d = asDictionary(dictionary);
  return d ? static_cast<PVIndex>(d->entries.size()) : 0;
}

PVTypeRef PVDictionaryGetValue(PVDictionaryRef dictionary, PVTypeRef key) noexcept {
  const PVDictionary *d = asDictionary(dictionary);
  if (!d || !key) return nullptr;
  auto it = d->entries.find(key);
  return it == d->entries.end() ? nullptr : it->second;
}

Boolean PVDictionaryContainsKey(PVDictionaryRef dictionary, PVTypeRef key) noexcept {
  return PVDictionaryGetValue(dictionary, key) != nullptr;
}

void PVDictionaryGetKeysAndValues(PVDictionaryRef dictionary, PVTypeRef *keys,
                                  PVTypeRef *values) noexcept {
  const PVDictionary *d = asDictionary(dictionary);
  if (!d) return;
  size_t i = 0;
  for (const auto &[k, v] : d->entries) {
    if (keys) keys[i] = k;
    if (values) values[i] = v;
    ++i;
  }
}

void PVDictionaryApplyFunction(PVDictionaryRef dictionary, PVDictionaryApplierFunction applier,
                               void *context) noexcept {
  const PVDictionary *d = asDictionary(dictionary);
  if (!d || !applier) return;
  for (const auto &[k, v] : d->entries) applier(k, v, context);
}

void PVDictionarySetValue(PVMutableDictionaryRef dictionary, PVTypeRef key,
                          PVTypeRef value) noexcept {
  PVDictionary *d = asDictionary(dictionary);
  if (!d || !d->isMutable || !key || !value) return;
  guarded([&] { d->set(key, value); });
}

void PVDictionaryRemoveValue(PVMutableDictionaryRef dictionary, PVTypeRef key) noexcept {
  PVDictionary *d = asDictionary(dictionary);
  if (!d || !d->isMutable || !key) return;
  auto it = d->entries.find(key);
  if (it == d->entries.end()) return;
  PVTypeRef k = it->first, v = it->second;
  d->entries.erase(it);
  PVRelease(k);
  PVRelease(v);
}

const PVSetCallBacks kPVTypeSetCallBacks = {0};

PVSetRef PVSetCreate(const PVTypeRef *values, PVIndex count,
                     const PVSetCallBacks *callBacks) noexcept {
  if (count < 0 || (!values && count > 0)) return nullptr;
  return guarded([&]() -> PVSetRef {
    auto *s = new PVSet(false, callBacks != nullptr);
    for (PVIndex i = 0; i < count; ++i) {
      if (values[i]) s->add(values[i]);
    }
    return s;
  });
}

PVMutableSetRef PVSetCreateMutable(const PVSetCallBacks *callBacks) noexcept {
  return guarded([&] { return new PVSet(true, callBacks != nullptr); });
}

PVIndex PVSetGetCount(PVSetRef set) noexcept {
  const PVSet *s = asSet(set);
  return s ? static_cast<PVIndex>(s->members.size()) : 0;
}

Boolean PVSetContainsValue(PVSetRef set, PVTypeRef value) noexcept {
  const PVSet *s = asSet(set);
  return s && value && s->members.count(value) > 0;
}

void PVSetAddValue(PVMutableSetRef set, PVTypeRef value) noexcept {
  PVSet *s = asSet(set);
  if (!s || !s->isMutable || !value) return;
  guarded([&] { s->add(value); });
}

}  // extern "C"
