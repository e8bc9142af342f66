/* A short program on libtarnwick: installs an L2TP service from a payload
 * made in code, the way a provisioning agent would, then lists the VPN
 * services of the store ($TARNWICK_STORE, or the default store). */
#include <stdio.h>
#include <tarnwick.h>

static void listServices(ZNPreferencesRef prefs) {
  PVArrayRef services = JXVPNServiceCopyMatching(NULL, prefs); /* every VPN service */
  for (PVIndex i = 0; i < PVArrayGetCount(services); ++i) {
    ZNNetworkServiceRef service = (ZNNetworkServiceRef)PVArrayGetValueAtIndex(services, i);
    printf("%-6s %s  %s\n", PVStringGetCStringPtr(JXVPNServiceGetType(service)),
           PVStringGetCStringPtr(ZNNetworkServiceGetServiceID(service)),
           PVStringGetCStringPtr(ZNNetworkServiceGetName(service)));
  }
  PVRelease(services);
}

int main(void) {
  ZNPreferencesRef prefs = ZNPreferencesCreate();
  if (!prefs) {
    fprintf(stderr, "cannot open the store: %s\n", ZNErrorString(ZNError()));
    return 1;
  }
  PVStringRef name = PVStringCreateWithCString("Example Office");
  PVStringRef server = PVStringCreateWithCString("vpn.example.com");
  PVDictionaryRef ppp = PVDictionaryCreate((const PVTypeRef[]){kZNPropNetPPPCommRemoteAddress},
                                           (const PVTypeRef[]){server}, 1);
  PVDictionaryRef payload =
      PVDictionaryCreate((const PVTypeRef[]){kJXVPNTypeKey, kZNPropUserDefinedName, kZNEntNetPPP},
                         (const PVTypeRef[]){kZNEntNetL2TP, name, ppp}, 3);

  /* Lock, install, select, commit and apply, unlock: nothing is permanent
   * before the commit. */
  int status = 1;
  if (JXVPNPreferencesLock(prefs)) {
    ZNNetworkServiceRef service = JXVPNServiceCreateWithPayloadAtom(payload, prefs);
    if (service && JXVPNUpdateDefaultsAfterAddingService(service, prefs) &&
        JXVPNPreferencesCommitAndApply(prefs)) {
      status = 0;
    }
    PVRelease(service);
    JXVPNPreferencesUnlock(prefs);
  }
  if (status == 0) listServices(prefs);

  PVRelease(payload);
  PVRelease(ppp);
  PVRelease(server);
  PVRelease(name);
  PVRelease(prefs);
  return status;
}
