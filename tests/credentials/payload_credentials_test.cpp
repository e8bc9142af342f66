#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"

namespace {

using tw::test::bytes;
using tw::test::text;
using tw::test::textOf;

// A dictionary built in place; a copy is an independent dictionary.
class Dict {
 public:
  Dict() = default;
  Dict(const Dict &other)
      : dict_(pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(other.get()))) {}
  Dict &set(PVStringRef key, PVTypeRef value) {
    PVDictionarySetValue(dict_.get(), key, value);
    return *this;
  }
  Dict &set(PVStringRef key, const char *value) { return set(key, text(value).get()); }
  Dict &set(PVStringRef key, const Dict &value) { return set(key, value.get()); }
  Dict &remove(PVStringRef key) {
    PVDictionaryRemoveValue(dict_.get(), key);
    return *this;
  }
  PVDictionaryRef get() const { return dict_.get(); }

 private:
  pv::Ref<PVMutableDictionaryRef> dict_ =
      pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
};

Dict payloadOf(PVStringRef type, PVStringRef entity, const Dict &dictionary) {
  return Dict().set(kJXVPNTypeKey, type).set(entity, dictionary);
}

Dict sharedSecretIPSec() {
  return Dict()
      .set(kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodSharedSecret)
      .set(kZNPropNetIPSecXAuthName, "xauth-user")
      .set(kZNPropNetIPSecXAuthPassword, "xauth-pass");
}

using Extractor = PVTypeRef (*)(PVDictionaryRef, PVStringRef *, Boolean *);

// Sits in the output slots before a call, to tell whether they were written.
const pv::Ref<PVStringRef> kUntouchedKey = text("untouched");
constexpr Boolean kUntouchedApplies = 7;

struct Outcome {
  std::string value;  // "(null)" for none
  PVStringRef key;
  Boolean applies;
};

Outcome extract(Extractor extractor, PVDictionaryRef payload, PVStringRef requested = nullptr) {
  Outcome outcome{"", requested, kUntouchedApplies};
  auto value = pv::Ref<PVTypeRef>::adopt(extractor(payload, &outcome.key, &outcome.applies));
  outcome.value = textOf(value.get());
  return outcome;
}

struct Case {
  const char *name;
  Dict payload;
  const char *value;
  PVStringRef key;
  bool applies;
};

void expectOutcomes(Extractor extractor, const std::vector<Case> &cases,
                    PVStringRef requested = nullptr) {
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    Outcome outcome = extract(extractor, c.payload.get(), requested);
    EXPECT_EQ(outcome.value, c.value);
    EXPECT_EQ(outcome.key, c.key);
    EXPECT_EQ(outcome.applies, c.applies);
  }
}

TEST(PayloadCredentials, NullPayloadWritesNothing) {
  for (Extractor extractor : {JXVPNCopyPayloadUserName, JXVPNCopyPayloadPassword,
                              JXVPNCopyPayloadSharedSecret, JXVPNCopyPayloadPIN}) {
    Outcome outcome = extract(extractor, nullptr, kUntouchedKey.get());
    EXPECT_EQ(outcome.value, "(null)");
    EXPECT_EQ(outcome.key, kUntouchedKey.get());
    EXPECT_EQ(outcome.applies, kUntouchedApplies);
  }
}

TEST(PayloadUserName, AccountNameByVPNType) {
  auto ppp = Dict().set(kZNPropNetPPPAuthName, "ppp-user");
  expectOutcomes(
      JXVPNCopyPayloadUserName,
      {
          {"IPSec, shared secret", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, sharedSecretIPSec()),
           "xauth-user", kZNPropNetIPSecXAuthName, true},
          {"IPSec, no method",
           payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                     sharedSecretIPSec().remove(kZNPropNetIPSecAuthenticationMethod)),
           "(null)", kZNPropNetIPSecXAuthName, false},
          {"IPSec, certificate",
           payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                     sharedSecretIPSec().set(kZNPropNetIPSecAuthenticationMethod,
                                             kZNValNetIPSecAuthenticationMethodCertificate)),
           "(null)", kZNPropNetIPSecXAuthName, false},
          {"IPSec, no dictionary", Dict().set(kJXVPNTypeKey, kZNEntNetIPSec), "(null)",
           kZNPropNetIPSecXAuthName, false},
          {"vendor VPN", payloadOf(kZNEntNetVPN, kZNEntNetPPP, ppp), "(null)", nullptr, false},
          {"L2TP without name", payloadOf(kZNEntNetL2TP, kZNEntNetPPP, Dict()), "(null)",
           kZNPropNetPPPAuthName, true},
          {"PPTP", payloadOf(kZNEntNetPPTP, kZNEntNetPPP, ppp), "ppp-user", kZNPropNetPPPAuthName,
           true},
          {"no type", Dict().set(kZNEntNetPPP, ppp), "ppp-user", kZNPropNetPPPAuthName, true},
      });
}

TEST(PayloadUserName, ValueIsUnconvertedWithTheCallersOwnReference) {
  auto name = bytes("ppp-user");
  Dict payload =
      payloadOf(kZNEntNetL2TP, kZNEntNetPPP, Dict().set(kZNPropNetPPPAuthName, name.get()));
  PVIndex before = PVGetRetainCount(name.get());
  PVTypeRef value = JXVPNCopyPayloadUserName(payload.get(), nullptr, nullptr);
  EXPECT_EQ(value, name.get());
  EXPECT_EQ(PVGetRetainCount(name.get()), before + 1);
  PVRelease(value);
}

TEST(PayloadUserNameAndPassword, ProxyCredentialsFollowTheAuthenticatedFlag) {
  auto one = pv::Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1));
  auto lowByteZero = pv::Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(256));
  struct {
    const char *name;
    PVTypeRef authenticated;
    bool userNameApplies;
    bool passwordApplies;
  } cases[] = {
      {"absent", nullptr, true, true},
      {"number 1", one.get(), true, false},
      {"number 256", lowByteZero.get(), false, false},
      {"boolean true", kPVBooleanTrue, false, false},
  };
  // Equal to the exported keys but other objects: the caller's own comes back.
  auto userKey = text("HTTPProxyUsername");
  auto passwordKey = text("HTTPProxyPassword");
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    Dict proxies = Dict()
                       .set(kJXVPNPropNetProxiesHTTPProxyUsernameKey, "proxy-user")
                       .set(kJXVPNPropNetProxiesHTTPProxyPasswordKey, "proxy-pass");
    if (c.authenticated)
      proxies.set(kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey, c.authenticated);
    Dict payload = payloadOf(kZNEntNetIPSec, kZNNetworkProtocolTypeProxies, proxies);
    expectOutcomes(JXVPNCopyPayloadUserName,
                   {{"user name", payload, "proxy-user", userKey.get(), c.userNameApplies}},
                   userKey.get());
    expectOutcomes(JXVPNCopyPayloadPassword,
                   {{"password", payload, "proxy-pass", passwordKey.get(), c.passwordApplies}},
                   passwordKey.get());
  }
}

TEST(PayloadUserNameAndPassword, ProxyNeedsAUserNameAndUnknownKeysGiveNothing) {
  PVStringRef userKey = kJXVPNPropNetProxiesHTTPProxyUsernameKey;
  PVStringRef passwordKey = kJXVPNPropNetProxiesHTTPProxyPasswordKey;
  Dict noUser = Dict().set(kZNNetworkProtocolTypeProxies, Dict().set(passwordKey, "p"));
  Dict noProxies = payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, sharedSecretIPSec());
  expectOutcomes(JXVPNCopyPayloadUserName,
                 {{"no user name", noUser, "(null)", userKey, false},
                  {"no proxies", noProxies, "(null)", userKey, false}},
                 userKey);
  expectOutcomes(JXVPNCopyPayloadPassword,
                 {{"no user name", noUser, "p", passwordKey, false},
                  {"no proxies", noProxies, "(null)", passwordKey, false}},
                 passwordKey);
  // Each function knows only its own proxy key.
  expectOutcomes(JXVPNCopyPayloadUserName, {{"password key", noUser, "(null)", passwordKey, false}},
                 passwordKey);
  expectOutcomes(JXVPNCopyPayloadPassword, {{"user name key", noProxies, "(null)", userKey, false}},
                 userKey);
}

TEST(PayloadPassword, AccountPasswordByVPNTypeAndAuthentication) {
  auto other = text("EAP-Other");
  auto rsa = text("EAP-RSA");
  PVTypeRef pluginList[] = {other.get(), rsa.get()};  // "EAP-RSA" anywhere counts
  auto rsaPlugins = pv::Ref<PVArrayRef>::adopt(PVArrayCreate(pluginList, 2));
  Dict ppp = Dict()
                 .set(kZNPropNetPPPAuthEAPPlugins, rsaPlugins.get())
                 .set(kZNPropNetPPPAuthPassword, "ppp-pass");
  Dict prompted = sharedSecretIPSec().set(kZNPropNetIPSecXAuthPasswordEncryption,
                                          kZNValNetIPSecXAuthPasswordEncryptionPrompt);
  auto withBoth = [&](PVStringRef type) {
    return Dict().set(kJXVPNTypeKey, type).set(kZNEntNetPPP, ppp).set(kZNEntNetIPSec, prompted);
  };
  auto ipsec = [](const Dict &d) { return payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, d); };
  auto utf8 = bytes("pässword");
  auto invalid = bytes("\xff\xfe");
  expectOutcomes(
      JXVPNCopyPayloadPassword,
      {
          {"token card, IPSec", withBoth(kZNEntNetIPSec), "(null)", nullptr, false},
          {"token card, L2TP", withBoth(kZNEntNetL2TP), "(null)", nullptr, false},
          {"token card without prompt", ipsec(sharedSecretIPSec()).set(kZNEntNetPPP, ppp),
           "xauth-pass", kZNPropNetIPSecXAuthPassword, true},
          {"prompt without token card", ipsec(prompted), "xauth-pass", kZNPropNetIPSecXAuthPassword,
           true},
          {"no method", ipsec(sharedSecretIPSec().remove(kZNPropNetIPSecAuthenticationMethod)),
           "xauth-pass", kZNPropNetIPSecXAuthPassword, true},
          {"vendor VPN", payloadOf(kZNEntNetVPN, kZNEntNetPPP, ppp), "(null)", nullptr, false},
          {"L2TP, UTF-8 data",
           payloadOf(kZNEntNetL2TP, kZNEntNetPPP,
                     Dict().set(kZNPropNetPPPAuthPassword, utf8.get())),
           "pässword", kZNPropNetPPPAuthPassword, true},
          {"PPTP, invalid data",
           payloadOf(kZNEntNetPPTP, kZNEntNetPPP,
                     Dict().set(kZNPropNetPPPAuthPassword, invalid.get())),
           "(null)", kZNPropNetPPPAuthPassword, true},
      });
}

TEST(PayloadPasswordAndSharedSecret, CertificateAuthenticationExcludesThem) {
  Dict ipsec = sharedSecretIPSec().set(kZNPropNetIPSecSharedSecret, "psk");
  const std::pair<const char *, Dict> payloads[] = {
      {"certificate method",
       payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                 Dict(ipsec).set(kZNPropNetIPSecAuthenticationMethod,
                                 kZNValNetIPSecAuthenticationMethodCertificate))},
      {"certificate UUID", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                                     Dict(ipsec).set(kJXVPNPayloadCertificateUUIDKey, "u"))},
      {"identity UUID", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                                  Dict(ipsec).set(kJXVPNPayloadCertificateIdentityUUIDKey, "u"))},
      {"no IPSec dictionary", Dict().set(kJXVPNTypeKey, kZNEntNetIPSec)},
  };
  for (const auto &[name, payload] : payloads) {
    expectOutcomes(JXVPNCopyPayloadPassword,
                   {{name, payload, "(null)", kZNPropNetIPSecXAuthPassword, false}});
    expectOutcomes(JXVPNCopyPayloadSharedSecret,
                   {{name, payload, "(null)", kZNPropNetIPSecSharedSecret, false}});
  }
}

TEST(PayloadSharedSecret, SourcesAreTakenInPriorityOrder) {
  auto exported =
      pv::Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(text("from-export").get()));
  auto obfuscated = bytes("\xac\x20\x13\x27");  // "€✓" in UTF-16LE
  Dict ipsec = sharedSecretIPSec()
                   .set(kZNPropNetL2TPIPSecSharedSecret, "from-l2tp-key")
                   .set(kZNPropNetIPSecSharedSecret, "from-ipsec-key")
                   .set(kJXVPNExportedIPSecSharedSecretKey, exported.get())
                   .set(kJXVPNEncryptedIPSecSharedSecretKey, obfuscated.get());
  const std::pair<PVStringRef, const char *> order[] = {
      {kZNPropNetL2TPIPSecSharedSecret, "from-l2tp-key"},
      {kZNPropNetIPSecSharedSecret, "from-ipsec-key"},
      {kJXVPNExportedIPSecSharedSecretKey, "from-export"},
      {kJXVPNEncryptedIPSecSharedSecretKey, "€✓"},
      {nullptr, "(null)"},  // applies all the same: the user must give it
  };
  for (const auto &[source, expected] : order) {
    expectOutcomes(JXVPNCopyPayloadSharedSecret,
                   {{expected, payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, ipsec), expected,
                     kZNPropNetIPSecSharedSecret, true},
                    {expected, payloadOf(kZNEntNetL2TP, kZNEntNetIPSec, ipsec), expected,
                     kZNPropNetIPSecSharedSecret, true}});
    if (source) ipsec.remove(source);
  }
}

TEST(PayloadSharedSecret, PlainDataIsDecodedAndOnlyIPSecAndL2TPCarryOne) {
  auto utf8 = bytes("pré-shared");
  auto invalid = bytes("\xc3\x28");
  Dict ipsec = sharedSecretIPSec().set(kZNPropNetIPSecSharedSecret, "psk");
  auto withSecret = [](PVStringRef key, PVTypeRef value) {
    return payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, sharedSecretIPSec().set(key, value));
  };
  expectOutcomes(
      JXVPNCopyPayloadSharedSecret,
      {
          {"L2TP key, UTF-8", withSecret(kZNPropNetL2TPIPSecSharedSecret, utf8.get()), "pré-shared",
           kZNPropNetIPSecSharedSecret, true},
          {"IPSec key, invalid", withSecret(kZNPropNetIPSecSharedSecret, invalid.get()), "(null)",
           kZNPropNetIPSecSharedSecret, true},
          {"PPTP", payloadOf(kZNEntNetPPTP, kZNEntNetIPSec, ipsec), "(null)", nullptr, false},
          {"vendor VPN", payloadOf(kZNEntNetVPN, kZNEntNetIPSec, ipsec), "(null)", nullptr, false},
          {"no type", Dict().set(kZNEntNetIPSec, ipsec), "(null)", nullptr, false},
      });
}

TEST(PayloadPIN, AskedOnlyForIPSecWithPromptTrue) {
  auto one = pv::Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1));
  auto prompt = [](PVTypeRef value) { return Dict().set(kJXVPNPromptForPinKey, value); };
  expectOutcomes(
      JXVPNCopyPayloadPIN,
      {
          {"IPSec, true", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, prompt(kPVBooleanTrue)),
           "(null)", nullptr, true},
          {"IPSec, false", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, prompt(kPVBooleanFalse)),
           "(null)", nullptr, false},
          {"IPSec, number 1", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, prompt(one.get())),
           "(null)", nullptr, false},
          {"L2TP, true", payloadOf(kZNEntNetL2TP, kZNEntNetIPSec, prompt(kPVBooleanTrue)), "(null)",
           nullptr, false},
      },
      kUntouchedKey.get());
}

}  // namespace
