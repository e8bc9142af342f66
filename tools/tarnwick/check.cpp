#include "check.hpp"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "credentials.hpp"
#include "describe.hpp"
#include "failure.hpp"

namespace tarnwick {
namespace {

// Every item of the Coffer, each as an attribute dictionary with its
// persistent reference (never its secret).
std::vector<Ref<PVDictionaryRef>> cofferItems() {
  auto query = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(nullptr, nullptr, 0));
  PVArrayRef all = nullptr;
  if (VltStatus status = VltItemCopyAllMatching(query.get(), &all)) {
    throw Failure(Exit::credentialStore,
                  "cannot read the Coffer (status " + std::to_string(status) + ")");
  }
  auto owned = Ref<PVArrayRef>::adopt(all);
  std::vector<Ref<PVDictionaryRef>> items;
  for (PVIndex i = 0; i < PVArrayGetCount(all); ++i) {
    items.push_back(Ref<PVDictionaryRef>::retain(elementAt<PVDictionaryRef>(all, i)));
  }
  return items;
}

PVTypeRef valueOf(const Ref<PVDictionaryRef> &item, PVStringRef key) {
  return PVDictionaryGetValue(item.get(), key);
}

bool isClass(const Ref<PVDictionaryRef> &item, PVStringRef itemClass) {
  return PVEqual(valueOf(item, kVltClass), itemClass);
}

// A service identifier as the store makes them: a UUID in its text form.
bool isServiceIdentifier(std::string_view text) {
  if (text.size() != 36) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

// The certificate of a certificate or identity item.
Ref<VltCertificateRef> certificateOf(const Ref<PVDictionaryRef> &item) {
  PVTypeRef object = valueOf(item, kVltValueRef);
  if (!object) return {};
  if (isClass(item, kVltClassCertificate)) {
    return Ref<VltCertificateRef>::retain(static_cast<VltCertificateRef>(object));
  }
  VltCertificateRef certificate = nullptr;
  if (VltIdentityCopyCertificate(static_cast<VltIdentityRef>(object), &certificate)) return {};
  return Ref<VltCertificateRef>::adopt(certificate);
}

std::string nameBytes(PVDataRef (*copy)(VltCertificateRef), VltCertificateRef certificate) {
  auto name = Ref<PVDataRef>::adopt(certificate ? copy(certificate) : nullptr);
  return bytesOf(name.get());
}

std::string subjectText(VltCertificateRef certificate) {
  auto summary = Ref<PVStringRef>::adopt(certificate ? VltCertificateCopySubjectSummary(certificate)
                                                     : nullptr);
  return summary ? textOf(summary.get()) : "(unreadable certificate)";
}

void removeItem(PVTypeRef reference, const std::string &what) {
  if (!JXCofferRemoveWithPersistentID(static_cast<PVDataRef>(reference))) {
    throw Failure(Exit::credentialStore, "the Coffer did not delete " + what);
  }
}

Json serviceJson(ZNNetworkServiceRef service) { return summaryJson(summarize(service)); }

// What the services of the store name in the Coffer.
struct StoreView {
  std::set<std::string> ids;
  std::set<std::string> names;
  std::set<std::string> localCertificates;  // persistent references, as bytes
};

StoreView viewOf(ZNPreferencesRef prefs) {
  StoreView view;
  auto all = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs));
  for (PVIndex i = 0; i < PVArrayGetCount(all.get()); ++i) {
    auto service = elementAt<ZNNetworkServiceRef>(all.get(), i);
    view.ids.insert(serviceID(service));
    view.names.insert(serviceName(service));
    for (const auto &reference : localCertificates(service)) {
      view.localCertificates.insert(bytesOf(reference.get()));
    }
  }
  return view;
}

// Generic passwords named after a service that is gone.
void findOrphanedSecrets(const StoreView &view, const std::vector<Ref<PVDictionaryRef>> &items,
                         std::vector<Finding> &findings) {
  for (const auto &item : items) {
    if (!isClass(item, kVltClassGenericPassword)) continue;
    const std::string itemService = textOf(valueOf(item, kVltAttrService));
    const std::string description = textOf(valueOf(item, kVltAttrDescription));
    std::string owner = itemService;
    for (const char *suffix : {".XAUTH", ".SS"}) {
      if (owner.ends_with(suffix)) owner.resize(owner.size() - std::string_view(suffix).size());
    }
    std::string text;
    if (isServiceIdentifier(owner)) {
      if (view.ids.contains(owner)) continue;
      text = "Coffer secret \"" + itemService + "\"" +
             (description.empty() ? "" : " (" + description + ")") +
             ": no service has the identifier " + owner;
    } else if (description.empty() && !valueOf(item, kVltAttrLabel)) {
      if (view.names.contains(itemService)) continue;
      text = "Coffer proxy password \"" + itemService + "\": no service has that name";
    } else {
      continue;  // not a service's
    }
    Json json = {{"kind", "orphanedSecret"}, {"item", itemService}};
    if (PVTypeRef account = valueOf(item, kVltAttrAccount)) json["account"] = textOf(account);
    if (!description.empty()) json["description"] = description;
    auto reference = Ref<PVTypeRef>::retain(valueOf(item, kVltValuePersistentRef));
    findings.push_back({json, text, "", [reference, itemService] {
                          removeItem(reference.get(), "the secret \"" + itemService + "\"");
                        }});
  }
}

// Identities and certificates no service uses, directly or in the chain
// of an item a service uses.
void findUnusedCertificates(const StoreView &view, const std::vector<Ref<PVDictionaryRef>> &items,
                            std::vector<Finding> &findings) {
  struct Entry {
    Ref<PVDictionaryRef> item;
    Ref<VltCertificateRef> certificate;
    bool used = false;
  };
  std::vector<Entry> entries;
  for (const auto &item : items) {
    if (isClass(item, kVltClassIdentity) || isClass(item, kVltClassCertificate)) {
      entries.push_back({item, certificateOf(item)});
    }
  }
  std::multimap<std::string, Entry *> bySubject;
  for (Entry &entry : entries) {
    bySubject.emplace(nameBytes(VltCertificateCopySubjectName, entry.certificate.get()), &entry);
  }
  // Each used item marks its issuers, and they theirs; a certificate is
  // followed once, so a loop of names ends.
  std::vector<Entry *> pending;
  for (Entry &entry : entries) {
    if (view.localCertificates.contains(bytesOf(valueOf(entry.item, kVltValuePersistentRef)))) {
      entry.used = true;
      pending.push_back(&entry);
    }
  }
  while (!pending.empty()) {
    VltCertificateRef certificate = pending.back()->certificate.get();
    pending.pop_back();
    const std::string issuer = nameBytes(VltCertificateCopyIssuerName, certificate);
    if (issuer.empty()) continue;
    auto [first, last] = bySubject.equal_range(issuer);
    for (auto it = first; it != last; ++it) {
      Entry *issuing = it->second;
      if (issuing->used || !isClass(issuing->item, kVltClassCertificate)) continue;
      issuing->used = true;
      pending.push_back(issuing);
    }
  }
  for (const Entry &entry : entries) {
    if (entry.used) continue;
    const bool identity = isClass(entry.item, kVltClassIdentity);
    const std::string subject = subjectText(entry.certificate.get());
    auto reference = Ref<PVTypeRef>::retain(valueOf(entry.item, kVltValuePersistentRef));
    const std::string what =
        std::string(identity ? "identity" : "certificate") + " \"" + subject + "\"";
    findings.push_back(
        {{{"kind", identity ? "unusedIdentity" : "unusedCertificate"}, {"subject", subject}},
         std::string(identity ? "Identity" : "Certificate") + " \"" + subject +
             "\" in the Coffer: no service uses it",
         "",
         [reference, what] { removeItem(reference.get(), "the " + what); }});
  }
}

// Takes the local certificate `reference` out of the service's
// configuration, wherever it is kept.
void forgetLocalCertificate(ZNNetworkServiceRef service, PVTypeRef reference) {
  bool forgotten = true;
  if (PVEqual(JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate),
              reference)) {
    const PVTypeRef keys[] = {kZNPropNetIPSecLocalCertificate};
    auto array = Ref<PVArrayRef>::adopt(PVArrayCreate(keys, 1));
    forgotten = JXVPNServiceRemoveConfigurationProperties(service, array.get());
  }
  PVDictionaryRef vpn = JXVPNServiceGetConfiguration(service, kZNEntNetVPN);
  if (forgotten && vpn &&
      PVEqual(PVDictionaryGetValue(vpn, kZNPropNetVPNLocalCertificate), reference)) {
    auto copy = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(vpn));
    PVDictionaryRemoveValue(copy.get(), kZNPropNetVPNLocalCertificate);
    forgotten = JXVPNServiceSetConfiguration(service, kZNEntNetVPN, copy.get());
  }
  if (!forgotten) {
    throw Failure(Exit::failure,
                  "cannot change the configuration of \"" + serviceName(service) + "\"");
  }
}

// Services whose configuration names an item the Coffer lacks.
void findMissingItems(ZNPreferencesRef prefs, const std::vector<Ref<PVDictionaryRef>> &items,
                      std::vector<Finding> &findings) {
  std::set<std::string> references, itemServices;
  for (const auto &item : items) {
    references.insert(bytesOf(valueOf(item, kVltValuePersistentRef)));
    if (isClass(item, kVltClassGenericPassword)) {
      itemServices.insert(textOf(valueOf(item, kVltAttrService)));
    }
  }
  for (auto &service : vpnServices(prefs)) {
    const std::string name = serviceName(service.get());
    for (auto &reference : localCertificates(service.get())) {
      if (references.contains(bytesOf(reference.get()))) continue;
      findings.push_back(
          {{{"kind", "missingCertificate"}, {"service", serviceJson(service.get())}},
           "\"" + name + "\": its client identity is missing from the Coffer",
           "install its payload again to bring the client identity back",
           [service, reference] { forgetLocalCertificate(service.get(), reference.get()); },
           true});
    }
    if (PVEqual(JXVPNServiceGetConfigurationProperty(service.get(),
                                                     kZNPropNetIPSecSharedSecretEncryption),
                kZNValNetIPSecSharedSecretEncryptionCoffer) &&
        !itemServices.contains(serviceID(service.get()) + ".SS")) {
      findings.push_back(
          {{{"kind", "missingSharedSecret"}, {"service", serviceJson(service.get())}},
           "\"" + name + "\": its shared secret is missing from the Coffer",
           "set it again with `tarnwick secret set \"" + name + "\"`",
           [service] { JXVPNServiceRemoveSharedSecret(service.get()); },
           true});
    }
  }
}

std::vector<std::string> leftoverFiles(ZNPreferencesRef prefs, bool remove) {
  auto files = Ref<PVArrayRef>::adopt(ZNPreferencesCopyLeftoverFiles(prefs, remove));
  if (!files) {
    throw Failure(Exit::failure,
                  std::string("cannot look for leftover files: ") + ZNErrorString(ZNError()));
  }
  std::vector<std::string> names;
  for (PVIndex i = 0; i < PVArrayGetCount(files.get()); ++i) {
    names.push_back(textOf(PVArrayGetValueAtIndex(files.get(), i)));
  }
  return names;
}

bool isLeftover(const Finding &finding) { return finding.json["kind"] == "leftoverFile"; }

}  // namespace

std::vector<Finding> findDisagreements(ZNPreferencesRef prefs) {
  const std::vector<Ref<PVDictionaryRef>> items = cofferItems();
  const StoreView view = viewOf(prefs);
  std::vector<Finding> findings;
  findOrphanedSecrets(view, items, findings);
  findUnusedCertificates(view, items, findings);
  findMissingItems(prefs, items, findings);
  for (const std::string &file : leftoverFiles(prefs, false)) {
    // Removed together, under the store's locks: no fix of its own.
    findings.push_back({{{"kind", "leftoverFile"}, {"file", file}},
                        "Leftover file " + file + " in the store directory",
                        "",
                        {}});
  }
  return findings;
}

void repairDisagreements(ZNPreferencesRef prefs, std::vector<Finding> &findings) {
  // The configuration first, in one commit: a Coffer item is deleted only
  // once no service it could belong to is about to change.
  bool changed = false;
  for (Finding &finding : findings) {
    if (!finding.changesSession) continue;
    finding.fix();
    changed = true;
  }
  if (changed && !JXVPNPreferencesCommitAndApply(prefs)) {
    throw Failure(Exit::failure,
                  std::string("cannot commit the repairs: ") + ZNErrorString(ZNError()));
  }
  for (Finding &finding : findings) {
    if (finding.changesSession) {
      finding.repaired = true;
    } else if (finding.fix) {
      finding.fix();
      finding.repaired = true;
    }
  }
  if (std::none_of(findings.begin(), findings.end(), isLeftover)) return;
  const std::vector<std::string> removed = leftoverFiles(prefs, true);
  for (Finding &finding : findings) {
    if (isLeftover(finding)) {
      finding.repaired = std::find(removed.begin(), removed.end(),
                                   finding.json["file"].get<std::string>()) != removed.end();
    }
  }
}

}  // namespace tarnwick
