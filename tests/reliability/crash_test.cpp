// A process killed at any moment of a commit leaves the store as it was
// before or as it is after, never torn, and a Coffer that SQLite finds
// whole; the same for a Coffer write. Every step the testing interface can
// stop at is tried, then random moments; each kill is told apart by where
// it fell. What the kills leave (the secrets of installs that never
// committed) is what `tarnwick check` then finds and puts right.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>

#include "cli/tool_runner.hpp"
#include "reliability/kill_runs.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/json.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using nlohmann::json;

// The steps a write passes; each is tried at every call it makes.
const char *const kCommitSteps[] = {"ZNPreferencesCommitChanges",
                                    "commit.row",
                                    "ZNPreferencesApplyChanges",
                                    "storage.write",
                                    "storage.sync",
                                    "storage.truncate"};
const char *const kCofferSteps[] = {"VltItemAdd",    "VltItemUpdate", "VltItemDelete",
                                    "storage.write", "storage.sync",  "storage.truncate"};

std::string jsonOf(PVTypeRef value) {
  auto text = Ref<PVStringRef>::adopt(value ? PVCreateJSONString(value) : nullptr);
  return text ? PVStringGetCStringPtr(text.get()) : "null";
}

// A service as a commit stores it, but for its identifier.
std::string describe(ZNNetworkServiceRef service) {
  std::string text = textOf(ZNNetworkServiceGetName(service)) +
                     (ZNNetworkServiceGetEnabled(service) ? " enabled" : " disabled");
  for (ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service); layer;
       layer = ZNNetworkInterfaceGetInterface(layer)) {
    text += " | " + textOf(ZNNetworkInterfaceGetInterfaceType(layer)) + " " +
            jsonOf(ZNNetworkInterfaceGetConfiguration(layer));
  }
  auto protocols = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyProtocols(service));
  for (PVIndex i = 0; i < PVArrayGetCount(protocols.get()); ++i) {
    auto protocol = at<ZNNetworkProtocolRef>(protocols.get(), i);
    text += " | " + textOf(ZNNetworkProtocolGetProtocolType(protocol)) + " " +
            jsonOf(ZNNetworkProtocolGetConfiguration(protocol));
  }
  return text;
}

// The committed store, as a new session reads it.
struct StoreState {
  std::vector<std::pair<std::string, std::string>> services;  // identifier, the rest
  struct Set {
    std::string id, name, selected;
    std::vector<std::string> members;
    bool operator==(const Set &) const = default;
  };
  std::vector<Set> sets;
  bool operator==(const StoreState &) const = default;

  // This state with `id` installed as the installation sequence does.
  StoreState with(const std::string &id, const std::string &description) const {
    StoreState next = *this;
    next.services.emplace_back(id, description);
    for (Set &set : next.sets) {
      set.members.push_back(id);
      set.selected = id;
    }
    return next;
  }
};

StoreState readState() {
  StoreState state;
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!prefs) return state;
  auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    auto service = at<ZNNetworkServiceRef>(services.get(), i);
    state.services.emplace_back(textOf(ZNNetworkServiceGetServiceID(service)), describe(service));
  }
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs.get()));
  for (PVIndex i = 0; i < PVArrayGetCount(sets.get()); ++i) {
    auto set = at<ZNNetworkSetRef>(sets.get(), i);
    auto selected = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(set));
    auto members = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set));
    StoreState::Set entry{textOf(ZNNetworkSetGetSetID(set)),
                          textOf(ZNNetworkSetGetName(set)),
                          selected ? textOf(ZNNetworkServiceGetServiceID(selected.get())) : "",
                          {}};
    for (PVIndex m = 0; m < PVArrayGetCount(members.get()); ++m) {
      entry.members.push_back(
          textOf(ZNNetworkServiceGetServiceID(at<ZNNetworkServiceRef>(members.get(), m))));
    }
    state.sets.push_back(entry);
  }
  return state;
}

// The writes a kill run makes: `variants` kinds of write, the one of
// each number made by `make`; `judge` says where a kill fell, false when
// the write left something torn.
struct Writes {
  int variants = 1;
  std::function<Write(int variant, int number)> make;
  std::function<bool(const KillOutcome &, int variant, int number, Fell &)> judge;
};

class Kills : public CliTest {
 protected:
  void SetUp() override {
    CliTest::SetUp();
    // Announcements of a new selection reach no real system bus.
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tarnwick-test-bus", 1);
  }

  // Each variant killed at every call of every step, then at `random`
  // moments up to the longest time a whole write took.
  KillTally run(const Writes &writes, const char *const *steps, size_t stepCount) {
    KillTally tally;
    int number = 0;
    auto judged = [&](int variant, const KillOutcome &outcome) {
      if (!outcome.killed) {
        EXPECT_EQ(outcome.exitStatus, 0) << "write " << number;
        ++tally.finished;
      }
      Fell fell = Fell::after;
      if (!writes.judge(outcome, variant, number, fell)) {
        ++tally.torn;
      } else if (outcome.killed) {
        tally.count(fell);
      }
      ++number;
    };
    std::chrono::microseconds longest{0};
    for (int variant = 0; variant < writes.variants; ++variant) {
      std::chrono::microseconds took{0};
      judged(variant, runWhole(writes.make(variant, number), took));
      longest = std::max(longest, took);
    }
    for (size_t s = 0; s < stepCount; ++s) {
      for (int variant = 0; variant < writes.variants; ++variant) {
        for (long nth = 1;; ++nth) {
          KillOutcome outcome = killAtStep(writes.make(variant, number), steps[s], nth, journal_);
          tally.stopped += outcome.killed;
          judged(variant, outcome);
          if (!outcome.killed) break;
        }
      }
    }
    std::mt19937 random(static_cast<unsigned>(getpid()));
    std::uniform_int_distribution<long> moment(0, static_cast<long>(longest.count()));
    for (int kills = 0; kills < killSize().random;) {
      const int variant = number % writes.variants;
      KillOutcome outcome = killAfter(writes.make(variant, number),
                                      std::chrono::microseconds(moment(random)), journal_);
      kills += outcome.killed;
      tally.random += outcome.killed;
      judged(variant, outcome);
    }
    std::printf("%s\n", tally.summary().c_str());
    return tally;
  }

  std::string journal_;  // of the database the writes change
};

// The installation sequence of the library, its credentials stored before
// the part that is killed: selecting the service (which commits and
// applies) and the final commit and apply.
Write installation(int number) {
  struct Shared {
    Ref<ZNPreferencesRef> prefs;
    Ref<ZNNetworkServiceRef> service;
  };
  auto shared = std::make_shared<Shared>();
  const std::string name = "Run " + std::to_string(number);
  return {[shared, name] {
            shared->prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
            auto payload =
                dict({{kJXVPNTypeKey, kZNEntNetL2TP},
                      {"PayloadDisplayName", name.c_str()},
                      {kZNEntNetPPP,
                       dict({{"CommRemoteAddress", "vpn.example.com"}, {"AuthName", "user"}})}});
            if (!shared->prefs || !JXVPNPreferencesLock(shared->prefs.get())) return false;
            shared->service = Ref<ZNNetworkServiceRef>::adopt(
                JXVPNServiceCreateWithPayloadAtom(payload.get(), shared->prefs.get()));
            if (!shared->service) return false;
            PVRelease(JXVPNServiceSetPassword(shared->service.get(), text("password").get()));
            return JXVPNServiceSetSharedSecret(shared->service.get(), text("secret").get()) != 0;
          },
          [shared] {
            return JXVPNUpdateDefaultsAfterAddingService(shared->service.get(),
                                                         shared->prefs.get()) &&
                   JXVPNPreferencesCommitAndApply(shared->prefs.get()) &&
                   JXVPNPreferencesUnlock(shared->prefs.get());
          }};
}

TEST_F(Kills, CommitKilledAnywhereLeavesTheStoreBeforeOrAfterAndCheckFindsTheRest) {
  journal_ = storeDir() + "/preferences.db-journal";
  // What an installed service looks like, its name aside.
  const std::string referenceName = "Run -1";
  ASSERT_EQ(runInChildProcess([] {
              Write write = installation(-1);
              return write.prepare() && write.write();
            }),
            0);
  StoreState before = readState();
  ASSERT_EQ(before.services.size(), 1u);
  const std::string shape = before.services[0].second;
  int uncommitted = 0;

  Writes writes;
  writes.make = [](int, int number) { return installation(number); };
  writes.judge = [&](const KillOutcome &outcome, int, int number, Fell &fell) {
    StoreState now = readState();
    EXPECT_FALSE(now.sets.empty()) << "the store does not open after write " << number;
    EXPECT_EQ(integrityOf(storeDir() + "/preferences.db"), "ok") << number;
    EXPECT_EQ(integrityOf(storeDir() + "/coffer.db"), "ok") << number;
    bool whole = false;
    if (now == before) {
      fell = outcome.hotJournal ? Fell::inside : Fell::before;
      ++uncommitted;  // its credentials are in the Coffer, its service is not
      whole = outcome.killed;
    } else if (now.services.size() == before.services.size() + 1) {
      std::string expected = shape;
      expected.replace(0, referenceName.size(), "Run " + std::to_string(number));
      whole = now == before.with(now.services.back().first, expected);
      fell = Fell::after;
    }
    EXPECT_TRUE(whole) << "write " << number << " left the store torn";
    before = now;
    return whole;
  };
  KillTally tally = run(writes, kCommitSteps, std::size(kCommitSteps));
  tally.expectSound();

  // Every committed service kept its credentials; the secrets of the
  // installs that never committed are what the check finds.
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto services = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(nullptr, prefs.get()));
  for (PVIndex i = 0; i < PVArrayGetCount(services.get()); ++i) {
    auto service = at<ZNNetworkServiceRef>(services.get(), i);
    EXPECT_EQ(textOf(Ref<PVStringRef>::adopt(JXVPNServiceCopyPassword(service)).get()), "password");
    EXPECT_EQ(textOf(Ref<PVStringRef>::adopt(JXVPNServiceCopySharedSecret(service)).get()),
              "secret");
  }
  const json found = tool({"--json", "check"}).json();
  std::map<std::string, int> kinds;
  for (const auto &finding : found["findings"]) ++kinds[finding["kind"]];
  std::printf("check after the kills: %zu findings, %d of them orphaned secrets\n",
              found["findings"].size(), kinds["orphanedSecret"]);
  EXPECT_EQ(kinds, (std::map<std::string, int>{{"orphanedSecret", 2 * uncommitted}}));
  EXPECT_EQ(tool({"check", "--repair"}).exitCode, 0);
  EXPECT_EQ(tool({"check"}).exitCode, 0);
}

// The Coffer's passwords: service, secret.
using CofferState = std::map<std::string, std::string>;

CofferState cofferState() {
  PVArrayRef items = nullptr;
  EXPECT_EQ(VltItemCopyAllMatching(dict({{kVltReturnData, kPVBooleanTrue}}).get(), &items),
            kVltSuccess);
  auto owned = Ref<PVArrayRef>::adopt(items);
  CofferState state;
  for (PVIndex i = 0; items && i < PVArrayGetCount(items); ++i) {
    auto item = at<PVDictionaryRef>(items, i);
    state[textOf(PVDictionaryGetValue(item, kVltAttrService))] =
        bytesOf(PVDictionaryGetValue(item, kVltValueData));
  }
  return state;
}

// The three Coffer writes, each on item `number`, which its preparation
// (not killed) makes absent for an add and present for the others.
enum CofferVariant { kAdd, kUpdate, kDelete, kCofferVariants };

std::string itemOf(int number) { return "item " + std::to_string(number); }

Write cofferWrite(int variant, int number) {
  const std::string item = itemOf(number);
  auto query = [item] {
    return dict({{kVltClass, kVltClassGenericPassword}, {kVltAttrService, item.c_str()}});
  };
  auto prepare = [=] {
    return variant == kAdd || addCofferPassword(item, "first " + item) == kVltSuccess;
  };
  switch (variant) {
    case kAdd:
      return {prepare, [item] { return addCofferPassword(item, "first " + item) == kVltSuccess; }};
    case kUpdate:
      return {prepare, [=] {
                auto changes = dict({{kVltValueData, bytes("second " + item)}});
                return VltItemUpdate(query().get(), changes.get()) == kVltSuccess;
              }};
    default:
      return {prepare, [=] { return VltItemDelete(query().get()) == kVltSuccess; }};
  }
}

TEST_F(Kills, CofferWriteKilledAnywhereLeavesTheItemsBeforeOrAfter) {
  journal_ = storeDir() + "/coffer.db-journal";
  ASSERT_EQ(addCofferPassword("kept", "kept"), kVltSuccess);
  CofferState state = cofferState();
  Writes writes;
  writes.variants = kCofferVariants;
  writes.make = cofferWrite;
  writes.judge = [&](const KillOutcome &outcome, int variant, int number, Fell &fell) {
    EXPECT_EQ(integrityOf(storeDir() + "/coffer.db"), "ok") << number;
    const std::string item = itemOf(number);
    CofferState before = state, after = state;
    if (variant != kAdd) before[item] = after[item] = "first " + item;
    if (variant == kAdd) after[item] = "first " + item;
    if (variant == kUpdate) after[item] = "second " + item;
    if (variant == kDelete) after.erase(item);
    CofferState now = cofferState();
    fell = now == after ? Fell::after : outcome.hotJournal ? Fell::inside : Fell::before;
    bool whole = now == after || (now == before && outcome.killed);
    EXPECT_TRUE(whole) << "write " << number << " left the Coffer torn";
    state = now;
    return whole;
  };
  KillTally tally = run(writes, kCofferSteps, std::size(kCofferSteps));
  tally.expectSound();
  EXPECT_EQ(cofferState().count("kept"), 1u);
}

}  // namespace
}  // namespace tw::test
