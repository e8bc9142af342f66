// The secret agent's public operations (tarnwick/platform/agent.h).
#include "platform/engine/agent.hpp"
#include "platform/engine/bus.hpp"
#include "platform/prefs/handles.hpp"
#include "tarnwick/platform/agent.h"

struct ZNSecretAgent : pv::PVObject {
  ZNSecretAgent(ZNSecretAgentCopyCredentialCallBack copy, ZNSecretAgentNoteCallBack note,
                void *context)
      : PVObject(pv::Kind::SecretAgent, false),
        copyCredential(copy),
        note(note),
        context(context) {}

  const ZNSecretAgentCopyCredentialCallBack copyCredential;
  const ZNSecretAgentNoteCallBack note;
  void *const context;
};

extern "C" {

ZNSecretAgentRef ZNSecretAgentCreate(ZNSecretAgentCopyCredentialCallBack copyCredential,
                                     ZNSecretAgentNoteCallBack note, void *context) noexcept {
  return zn::run(__func__, nullptr, [&] {
    if (!copyCredential) zn::fail(kZNStatusInvalidArgument);
    return new ZNSecretAgent(copyCredential, note, context);
  });
}

Boolean ZNSecretAgentRun(ZNSecretAgentRef agentRef) noexcept {
  return zn::run(__func__, false, [&] {
    ZNSecretAgent &agent = zn::expect<ZNSecretAgent>(agentRef, pv::Kind::SecretAgent);
    const char *directory = ZNStoreGetDirectory();
    if (!directory) zn::fail(kZNStatusFailed);
    engine::SecretAgent served(
        directory,
        [&](ZNNetworkServiceRef service, engine::Credential credential) {
          return pv::Ref<PVStringRef>::adopt(agent.copyCredential(
              service, static_cast<ZNSecretAgentCredential>(credential), agent.context));
        },
        [&](const std::string &text) {
          if (agent.note) agent.note(text.c_str(), agent.context);
        });
    try {
      served.run();
    } catch (const engine::BusError &error) {
      if (agent.note) agent.note((std::string("stopped: ") + error.what()).c_str(), agent.context);
      zn::fail(kZNStatusNoEngine);
    }
    return true;
  });
}

}  // extern "C"
