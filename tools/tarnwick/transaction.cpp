#include "transaction.hpp"

#include <cstdio>

#include "failure.hpp"

namespace tarnwick {
namespace {

constexpr Secret kAllSecrets[] = {Secret::accountPassword, Secret::sharedSecret,
                                  Secret::proxyPassword};

std::string platformError() { return ZNErrorString(ZNError()); }

}  // namespace

Transaction::Transaction(ZNPreferencesRef prefs, Writes writes) : prefs_(prefs) {
  lockPreferences(prefs_);
  appliedAtStart_ = ZNPreferencesGetAppliedGeneration(prefs_);
  // Without a batch (a Coffer that cannot be opened now) each Coffer call
  // goes on alone, and fails or not, as it would anyway.
  batch_ = writes == Writes::secrets && VltBatchBegin() == kVltSuccess;
}

Transaction::~Transaction() {
  if (batch_) (void)VltBatchCancel();  // what it had written is gone with it
  if (!committed_) {
    try {
      undo();
    } catch (const std::exception &error) {
      std::fprintf(stderr, "tarnwick: undoing the change failed: %s\n", error.what());
    }
  }
  // Nothing more to do about a failed unlock here; the lock ends with the process.
  (void)JXVPNPreferencesUnlock(prefs_);
}

void Transaction::removeService(ZNNetworkServiceRef service) {
  RemovedSecrets kept{Ref<PVStringRef>::retain(ZNNetworkServiceGetServiceID(service)), {}};
  for (Secret which : kAllSecrets) {
    if (auto secret = copySecret(service, which)) kept.secrets.emplace_back(which, secret);
  }
  for (auto &identity : localCertificates(service)) identitiesOfRemoved_.push_back(identity);
  removed_.push_back(std::move(kept));
  if (!JXVPNServiceRemove(service)) {
    throw Failure(Exit::failure,
                  "cannot remove \"" + serviceName(service) + "\": " + platformError());
  }
}

void Transaction::onUndo(std::function<void()> undo) { undos_.push_back(std::move(undo)); }

void Transaction::setSecret(const Ref<ZNNetworkServiceRef> &service, Secret which,
                            PVStringRef value) {
  onUndo([service, which, previous = copySecret(service.get(), which)] {
    if (previous) {
      storeSecret(service.get(), which, previous.get());
    } else {
      removeSecret(service.get(), which);
    }
  });
  if (value) {
    storeSecret(service.get(), which, value);
  } else {
    removeSecret(service.get(), which);
  }
}

void Transaction::importedIdentity(PVDataRef persistentReference) {
  identitiesImported_.push_back(Ref<PVDataRef>::retain(persistentReference));
}

void Transaction::storeSecrets() {
  if (!batch_) return;
  batch_ = false;
  if (VltStatus status = VltBatchCommit()) {
    throw Failure(Exit::credentialStore,
                  "the Coffer did not keep the secrets (status " + std::to_string(status) + ")");
  }
}

void Transaction::commit() {
  storeSecrets();
  // Selecting a service commits and applies by itself when the current
  // set's selection changes; after that the change is in the store, and
  // undoing its Coffer half would only break it.
  bool selfCommitted = ZNPreferencesGetAppliedGeneration(prefs_) != appliedAtStart_;
  // Commit and apply apart, so that a failed apply is never taken for a
  // failed commit: the change is in the store then, secrets and all.
  if (!ZNPreferencesCommitChanges(prefs_)) {
    std::string error = platformError();
    committed_ = selfCommitted;
    if (committed_) dropUnheldIdentities(identitiesOfRemoved_);
    throw Failure(Exit::failure, "cannot commit the preferences: " + error);
  }
  committed_ = true;
  dropUnheldIdentities(identitiesOfRemoved_);
  if (!ZNPreferencesApplyChanges(prefs_)) {
    throw Failure(Exit::failure, "the change is committed, but applying it failed: " +
                                     platformError() + "; `tarnwick apply` applies it again");
  }
}

void Transaction::undo() {
  for (auto it = undos_.rbegin(); it != undos_.rend(); ++it) (*it)();
  // The secrets below go back whether or not the session could re-read the store.
  (void)ZNPreferencesSynchronize(prefs_);
  for (const RemovedSecrets &kept : removed_) {
    auto service =
        Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs_, kept.serviceID.get()));
    if (!service) continue;
    for (const auto &[which, secret] : kept.secrets)
      storeSecret(service.get(), which, secret.get());
  }
  dropUnheldIdentities(identitiesImported_);
}

void Transaction::dropUnheldIdentities(const std::vector<Ref<PVDataRef>> &identities) {
  if (identities.empty()) return;
  std::vector<Ref<PVDataRef>> held;
  for (auto &service : vpnServices(prefs_)) {
    for (auto &reference : localCertificates(service.get())) held.push_back(reference);
  }
  for (const auto &identity : identities) {
    bool isHeld = false;
    for (const auto &reference : held) isHeld = isHeld || PVEqual(reference.get(), identity.get());
    if (!isHeld) JXCofferRemoveWithPersistentID(identity.get());
  }
}

}  // namespace tarnwick
