// One locked change of the store that either commits whole or leaves the
// preferences and the Coffer as they were.
//
// The preferences change only in the session until commit; the Coffer
// changes at once. So every Coffer change made on the way registers how to
// undo it, and a transaction that ends without commit undoes them (newest
// first), re-reads the store and puts back the secrets of the services it
// had removed. Client identities are deleted only after commit, and only
// when no service of the store still names them: they cannot be put back.
#pragma once

#include <functional>
#include <vector>

#include "credentials.hpp"

namespace tarnwick {

class Transaction {
 public:
  // Takes the preferences lock (waiting for it when another process has it).
  explicit Transaction(ZNPreferencesRef prefs);
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

  // Commits and applies; fails (leaving the undo to the destructor) when
  // the store does not take the commit, and fails without an undo when
  // only the apply fails.
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
  std::vector<std::function<void()>> undos_;
  std::vector<RemovedSecrets> removed_;
  std::vector<Ref<PVDataRef>> identitiesOfRemoved_;
  std::vector<Ref<PVDataRef>> identitiesImported_;
};

}  // namespace tarnwick
