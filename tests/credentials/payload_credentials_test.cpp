#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick.h"

namespace tw::test {
namespace {

using Dict = Ref<PVDictionaryRef>;

Dict payloadOf(PVStringRef type, PVStringRef entity, const Dict &dictionary) {
  return dict({{kJXVPNTypeKey, type}, {entity, dictionary}});
}

Dict without(const Dict &dictionary, PVStringRef key) {
  auto copy = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutableCopy(dictionary.get()));
  PVDictionaryRemoveValue(copy.get(), key);
  return Dict::adopt(PVDictionaryCreateCopy(copy.get()));
}

Dict sharedSecretIPSec(std::initializer_list<std::pair<DictItem, DictItem>> more = {}) {
  return dict(
      more,
      dict({{kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodSharedSecret},
            {kZNPropNetIPSecXAuthName, "xauth-user"},
            {kZNPropNetIPSecXAuthPassword, "xauth-pass"}})
          .get());
}

using Extractor = PVTypeRef (*)(PVDictionaryRef, PVStringRef *, Boolean *);

// Sits in the output slots before a call, to tell whether they were written.
const Ref<PVStringRef> kUntouchedKey = text("untouched");
constexpr Boolean kUntouchedApplies = 7;

struct Outcome {
  std::string value;  // "(null)" for none
  PVStringRef key;
  Boolean applies;
};

Outcome extract(Extractor extractor, PVDictionaryRef payload, PVStringRef requested = nullptr) {
  Outcome outcome{"", requested, kUntouchedApplies};
  auto value = Ref<PVTypeRef>::adopt(extractor(payload, &outcome.key, &outcome.applies));
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
  auto ppp = dict({{kZNPropNetPPPAuthName, "ppp-user"}});
  expectOutcomes(
      JXVPNCopyPayloadUserName,
      {
          {"IPSec, shared secret", payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, sharedSecretIPSec()),
           "xauth-user", kZNPropNetIPSecXAuthName, true},
          {"IPSec, no method",
           payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                     without(sharedSecretIPSec(), kZNPropNetIPSecAuthenticationMethod)),
           "(null)", kZNPropNetIPSecXAuthName, false},
          {"IPSec, certificate",
           payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                     sharedSecretIPSec({{kZNPropNetIPSecAuthenticationMethod,
                                         kZNValNetIPSecAuthenticationMethodCertificate}})),
           "(null)", kZNPropNetIPSecXAuthName, false},
          {"IPSec, no dictionary", dict({{kJXVPNTypeKey, kZNEntNetIPSec}}), "(null)",
           kZNPropNetIPSecXAuthName, false},
          {"vendor VPN", payloadOf(kZNEntNetVPN, kZNEntNetPPP, ppp), "(null)", nullptr, false},
          {"L2TP without name", payloadOf(kZNEntNetL2TP, kZNEntNetPPP, dict({})), "(null)",
           kZNPropNetPPPAuthName, true},
          {"PPTP", payloadOf(kZNEntNetPPTP, kZNEntNetPPP, ppp), "ppp-user", kZNPropNetPPPAuthName,
           true},
          {"no type", dict({{kZNEntNetPPP, ppp}}), "ppp-user", kZNPropNetPPPAuthName, true},
      });
}

TEST(PayloadUserName, ValueIsUnconvertedWithTheCallersOwnReference) {
  auto name = bytes("ppp-user");
  Dict payload = payloadOf(kZNEntNetL2TP, kZNEntNetPPP, dict({{kZNPropNetPPPAuthName, name}}));
  PVIndex before = PVGetRetainCount(name.get());
  PVTypeRef value = JXVPNCopyPayloadUserName(payload.get(), nullptr, nullptr);
  EXPECT_EQ(value, name.get());
  EXPECT_EQ(PVGetRetainCount(name.get()), before + 1);
  PVRelease(value);
}

TEST(PayloadUserNameAndPassword, ProxyCredentialsFollowTheAuthenticatedFlag) {
  auto one = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1));
  auto lowByteZero = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(256));
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
    Dict proxies = dict({{kJXVPNPropNetProxiesHTTPProxyUsernameKey, "proxy-user"},
                         {kJXVPNPropNetProxiesHTTPProxyPasswordKey, "proxy-pass"}});
    if (c.authenticated) {
      proxies =
          dict({{kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey, c.authenticated}}, proxies.get());
    }
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
  Dict noUser = dict({{kZNNetworkProtocolTypeProxies, dict({{passwordKey, "p"}})}});
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
  auto rsaPlugins = array({other.get(), rsa.get()});  // "EAP-RSA" anywhere counts
  Dict ppp =
      dict({{kZNPropNetPPPAuthEAPPlugins, rsaPlugins}, {kZNPropNetPPPAuthPassword, "ppp-pass"}});
  Dict prompted = sharedSecretIPSec(
      {{kZNPropNetIPSecXAuthPasswordEncryption, kZNValNetIPSecXAuthPasswordEncryptionPrompt}});
  auto withBoth = [&](PVStringRef type) {
    return dict({{kJXVPNTypeKey, type}, {kZNEntNetPPP, ppp}, {kZNEntNetIPSec, prompted}});
  };
  auto ipsec = [](const Dict &d) { return payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, d); };
  auto utf8 = bytes("pässword");
  auto invalid = bytes("\xff\xfe");
  expectOutcomes(
      JXVPNCopyPayloadPassword,
      {
          {"token card, IPSec", withBoth(kZNEntNetIPSec), "(null)", nullptr, false},
          {"token card, L2TP", withBoth(kZNEntNetL2TP), "(null)", nullptr, false},
          {"token card without prompt",
           dict({{kZNEntNetPPP, ppp}}, ipsec(sharedSecretIPSec()).get()), "xauth-pass",
           kZNPropNetIPSecXAuthPassword, true},
          {"prompt without token card", ipsec(prompted), "xauth-pass", kZNPropNetIPSecXAuthPassword,
           true},
          {"no method", ipsec(without(sharedSecretIPSec(), kZNPropNetIPSecAuthenticationMethod)),
           "xauth-pass", kZNPropNetIPSecXAuthPassword, true},
          {"vendor VPN", payloadOf(kZNEntNetVPN, kZNEntNetPPP, ppp), "(null)", nullptr, false},
          {"L2TP, UTF-8 data",
           payloadOf(kZNEntNetL2TP, kZNEntNetPPP, dict({{kZNPropNetPPPAuthPassword, utf8}})),
           "pässword", kZNPropNetPPPAuthPassword, true},
          {"PPTP, invalid data",
           payloadOf(kZNEntNetPPTP, kZNEntNetPPP, dict({{kZNPropNetPPPAuthPassword, invalid}})),
           "(null)", kZNPropNetPPPAuthPassword, true},
      });
}

TEST(PayloadPasswordAndSharedSecret, CertificateAuthenticationExcludesThem) {
  auto ipsec = [](std::initializer_list<std::pair<DictItem, DictItem>> more) {
    return payloadOf(kZNEntNetIPSec, kZNEntNetIPSec,
                     dict(more, sharedSecretIPSec({{kZNPropNetIPSecSharedSecret, "psk"}}).get()));
  };
  const std::pair<const char *, Dict> payloads[] = {
      {"certificate method", ipsec({{kZNPropNetIPSecAuthenticationMethod,
                                     kZNValNetIPSecAuthenticationMethodCertificate}})},
      {"certificate UUID", ipsec({{kJXVPNPayloadCertificateUUIDKey, "u"}})},
      {"identity UUID", ipsec({{kJXVPNPayloadCertificateIdentityUUIDKey, "u"}})},
      {"no IPSec dictionary", dict({{kJXVPNTypeKey, kZNEntNetIPSec}})},
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
      Ref<PVDataRef>::adopt(JXVPNCreateExportedIPSecSharedSecret(text("from-export").get()));
  auto obfuscated = bytes("\xac\x20\x13\x27");  // "€✓" in UTF-16LE
  Dict ipsec = sharedSecretIPSec({{kZNPropNetL2TPIPSecSharedSecret, "from-l2tp-key"},
                                  {kZNPropNetIPSecSharedSecret, "from-ipsec-key"},
                                  {kJXVPNExportedIPSecSharedSecretKey, exported},
                                  {kJXVPNEncryptedIPSecSharedSecretKey, obfuscated}});
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
    if (source) ipsec = without(ipsec, source);
  }
}

TEST(PayloadSharedSecret, PlainDataIsDecodedAndOnlyIPSecAndL2TPCarryOne) {
  auto utf8 = bytes("pré-shared");
  auto invalid = bytes("\xc3\x28");
  Dict ipsec = sharedSecretIPSec({{kZNPropNetIPSecSharedSecret, "psk"}});
  auto withSecret = [](PVStringRef key, PVTypeRef value) {
    return payloadOf(kZNEntNetIPSec, kZNEntNetIPSec, sharedSecretIPSec({{key, value}}));
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
          {"no type", dict({{kZNEntNetIPSec, ipsec}}), "(null)", nullptr, false},
      });
}

TEST(PayloadPIN, AskedOnlyForIPSecWithPromptTrue) {
  auto one = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1));
  auto prompt = [](PVTypeRef value) { return dict({{kJXVPNPromptForPinKey, value}}); };
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
}  // namespace tw::test
