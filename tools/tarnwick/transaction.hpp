// One locked change of the store that either commits whole or leaves the
// preferences and the Coffer as they were.
//
// The preferences change only in the session until commit; the Coffer
// changes at once. So every Coffer change made on the way registers how to
// undo it, and a transaction that ends without commit undoes them (newest
// first), re-reads the store and puts back the secrets of the services it
// had removed. Client identities are deleted only after commit, and only
// when no service of the store still names them: they cannot be put back.
//
// The Coffer writes go into one batch, made durable at once before the
// preferences can commit (storeSecrets), so that a committed service never
// names a secret the Coffer has not kept; a transaction that ends before
// that cancels the batch, and its Coffer writes with it.
#pragma once

#include <functional>
#include <vector>

#include "credentials.hpp"

namespace tarnwick {

class Transaction {
 public:
  // What the change writes: a change of secrets batches its Coffer writes;
  // one of the preferences alone leaves the Coffer closed.
  enum class Writes { preferences, secrets };
  // Takes the preferences lock (waiting for it when another process has it).
  Transaction(ZNPreferencesRef prefs, Writes writes);
  ~Transaction();
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;

  ZNPreferencesRef prefs() const { return prefs_; }

  // Removes the service with its Coffer secrets (the removal sequence);
  // its client identity goes at commit unless another service names it.
  void removeService(ZNNetworkServiceRef service);
  // Runs `undo` if the transaction ends without commit, before the store
  // is re-read.
  void onUndo(std::function<void()> undo);
  // Stores (or, with a null value, removes) one secret of the service in
  // the Coffer; undone by putting back what the Coffer held before.
  void setSecret(const Ref<ZNNetworkServiceRef> &service, Secret which, PVStringRef value);
  // An identity imported for this change: deleted again on undo unless a
  // service of the store names it.
  void importedIdentity(PVDataRef persistentReference);

  // Makes the Coffer writes so far durable; call it before anything that
  // may commit the preferences. Fails when the Coffer does not keep them.
  void storeSecrets();

  // Stores the secrets, commits and applies; fails (leaving the undo to the
  // destructor) when the store does not take the commit, and fails without
  // an undo when only the apply fails.
  void commit();

 private:
  struct RemovedSecrets {
    Ref<PVStringRef> serviceID;
    std::vector<std::pair<Secret, Ref<PVStringRef>>> secrets;
  };

  void undo();
  void dropUnheldIdentities(const std::vector<Ref<PVDataRef>> &identities);

  ZNPreferencesRef prefs_;
  int64_t appliedAtStart_ = 0;
  bool committed_ = false;
  bool batch_ = false;  // a Coffer batch is open
  std::vector<std::function<void()>> undos_;
  std::vector<RemovedSecrets> removed_;
  std::vector<Ref<PVDataRef>> identitiesOfRemoved_;
  std::vector<Ref<PVDataRef>> identitiesImported_;
};

}  // namespace tarnwick
