// Batches: writes inside one behave as they do outside, reach the disk
// together at its commit, and leave the Coffer as it was when the batch is
// cancelled, fails or dies with its process.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/test_support.hpp"
#include "tarnwick/platform/testing.h"

namespace {

using tw::test::addCofferPassword;
using tw::test::bytes;
using tw::test::cofferItem;
using tw::test::dict;
using tw::test::hasCofferItem;
using tw::test::runInChildProcess;

// Another process, forked before any batch begins (a process forked during
// one cannot use the Coffer), that says which of the services it is asked
// about it finds in the Coffer.
class Witness {
 public:
  Witness() {
    if (pipe(questions_) != 0 || pipe(answers_) != 0) return;
    fflush(nullptr);
    pid_ = fork();
    if (pid_ != 0) {
      close(questions_[0]);
      close(answers_[1]);
      return;
    }
    close(questions_[1]);
    close(answers_[0]);
    char buffer[256];
    ssize_t n;
    while ((n = read(questions_[0], buffer, sizeof buffer)) > 0) {
      std::string seen, names(buffer, static_cast<size_t>(n));
      for (size_t at = 0; at < names.size();) {
        size_t end = names.find(',', at);
        if (end == std::string::npos) end = names.size();
        std::string name = names.substr(at, end - at);
        if (hasCofferItem(name)) seen += (seen.empty() ? "" : ",") + name;
        at = end + 1;
      }
      if (seen.empty()) seen = "-";
      if (write(answers_[1], seen.data(), seen.size()) < 0) break;
    }
    _exit(0);
  }
  ~Witness() {
    close(questions_[1]);
    close(answers_[0]);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }
  // The names it finds, joined by commas; "-" for none.
  std::string sees(const std::string &names) {
    if (pid_ <= 0 || write(questions_[1], names.data(), names.size()) < 0) return "(no witness)";
    char buffer[256];
    ssize_t n = read(answers_[0], buffer, sizeof buffer);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "(no answer)";
  }

 private:
  int questions_[2] = {-1, -1};
  int answers_[2] = {-1, -1};
  pid_t pid_ = -1;
};

class CofferBatch : public tw::test::StoreTest {
 protected:
  void TearDown() override {
    (void)VltBatchCancel();  // a failed test must not leave its batch to the next
    StoreTest::TearDown();
  }
};

TEST_F(CofferBatch, CallsInsideBehaveAsOutsideAndOthersSeeNothingBeforeTheCommit) {
  ASSERT_EQ(addCofferPassword("before", "old"), kVltSuccess);
  Witness other;
  ASSERT_EQ(VltBatchBegin(), kVltSuccess);

  EXPECT_EQ(addCofferPassword("added"), kVltSuccess);
  // A duplicate fails as always, and fails alone: the batch goes on.
  EXPECT_EQ(addCofferPassword("added"), kVltErrorDuplicateItem);
  EXPECT_EQ(addCofferPassword("also added"), kVltSuccess);
  EXPECT_EQ(VltItemUpdate(dict({{kVltAttrService, "before"}}).get(),
                          dict({{kVltValueData, bytes("new").get()}}).get()),
            kVltSuccess);
  EXPECT_EQ(VltItemDelete(dict({{kVltAttrService, "absent"}}).get()), kVltErrorItemNotFound);
  // The batch's own reads see its writes.
  EXPECT_EQ(cofferItem("before"), "-|-|-|when-unlocked|new");
  EXPECT_TRUE(hasCofferItem("added"));

  EXPECT_EQ(other.sees("before,added,also added"), "before");
  EXPECT_EQ(VltBatchCommit(), kVltSuccess);
  EXPECT_EQ(other.sees("before,added,also added"), "before,added,also added");
  EXPECT_EQ(cofferItem("before"), "-|-|-|when-unlocked|new");
}

TEST_F(CofferBatch, ACancelledBatchLeavesTheCofferAsItWas) {
  ASSERT_EQ(addCofferPassword("kept", "old"), kVltSuccess);
  ASSERT_EQ(VltBatchBegin(), kVltSuccess);
  EXPECT_EQ(addCofferPassword("added"), kVltSuccess);
  EXPECT_EQ(VltItemDelete(dict({{kVltAttrService, "kept"}}).get()), kVltSuccess);
  EXPECT_EQ(VltBatchCancel(), kVltSuccess);

  EXPECT_FALSE(hasCofferItem("added"));
  EXPECT_EQ(cofferItem("kept"), "-|-|-|when-unlocked|old");
  // Outside a batch again: each write is durable on its own.
  EXPECT_EQ(addCofferPassword("after"), kVltSuccess);
  EXPECT_EQ(Witness().sees("kept,added,after"), "kept,after");
}

TEST_F(CofferBatch, ABatchThatDiesWithItsProcessLeavesTheCofferAsItWas) {
  ASSERT_EQ(addCofferPassword("kept"), kVltSuccess);
  for (bool killed : {false, true}) {
    int status = runInChildProcess([&] {
      if (VltBatchBegin() != kVltSuccess || addCofferPassword("added") != kVltSuccess ||
          VltItemDelete(dict({{kVltAttrService, "kept"}}).get()) != kVltSuccess) {
        return false;
      }
      if (killed) raise(SIGKILL);
      return true;  // the child ends with its batch open
    });
    EXPECT_EQ(status, killed ? 128 + SIGKILL : 0);
    EXPECT_TRUE(hasCofferItem("kept")) << (killed ? "killed" : "exited");
    EXPECT_FALSE(hasCofferItem("added")) << (killed ? "killed" : "exited");
  }
}

TEST_F(CofferBatch, OneBatchAtATime) {
  EXPECT_EQ(VltBatchCommit(), kVltErrorParam);
  EXPECT_EQ(VltBatchCancel(), kVltErrorParam);
  ASSERT_EQ(VltBatchBegin(), kVltSuccess);
  EXPECT_EQ(VltBatchBegin(), kVltErrorParam);
  EXPECT_EQ(addCofferPassword("inside"), kVltSuccess);
  EXPECT_EQ(VltBatchCommit(), kVltSuccess);
  EXPECT_EQ(VltBatchCommit(), kVltErrorParam);
  EXPECT_TRUE(hasCofferItem("inside"));
}

// A child forked during a batch inherits SQLite's lock state in the middle
// of a transaction: it must not touch the Coffer at all, and the parent's
// batch goes on unharmed.
TEST_F(CofferBatch, AChildForkedDuringABatchCannotUseTheCoffer) {
  ASSERT_EQ(addCofferPassword("before"), kVltSuccess);
  ASSERT_EQ(VltBatchBegin(), kVltSuccess);
  ASSERT_EQ(addCofferPassword("parent's"), kVltSuccess);
  int status = runInChildProcess([] {
    PVTypeRef found = nullptr;
    return VltBatchCommit() == kVltErrorParam && VltBatchBegin() == kVltErrorStore &&
           addCofferPassword("child's") == kVltErrorStore &&
           VltItemCopyMatching(dict({{kVltAttrService, "before"}}).get(), &found) ==
               kVltErrorStore;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(VltBatchCommit(), kVltSuccess);
  EXPECT_EQ(Witness().sees("before,parent's,child's"), "before,parent's");
}

TEST_F(CofferBatch, FailuresToBeginOrCommitLeaveNoBatchBehind) {
  PTFailNthCall("VltBatchBegin", 1);
  EXPECT_EQ(VltBatchBegin(), kVltErrorInjected);
  EXPECT_EQ(VltBatchCommit(), kVltErrorParam);

  ASSERT_EQ(VltBatchBegin(), kVltSuccess);
  ASSERT_EQ(addCofferPassword("inside"), kVltSuccess);
  PTFailNthCall("VltBatchCommit", 1);
  EXPECT_EQ(VltBatchCommit(), kVltErrorInjected);
  // The batch is still open: an injected failure stops the call before it acts.
  EXPECT_EQ(VltBatchCancel(), kVltSuccess);
  EXPECT_FALSE(hasCofferItem("inside"));

  // A store that cannot be opened has no batch to begin.
  ZNStoreSetDirectory("");
  EXPECT_EQ(VltBatchBegin(), kVltErrorStore);
  ZNStoreSetDirectory(storeDir().c_str());
  EXPECT_EQ(VltBatchCancel(), kVltErrorParam);
}

}  // namespace
