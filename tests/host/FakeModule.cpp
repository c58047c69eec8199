// FakeModule.cpp: the smallest module library a host can load. Built twice:
// complete, and without GetModuleInfo (FAKE_WITHOUT_MODULE_INFO) to test the
// host's report of a missing export.

#include <cstring>

#include "FakeModuleProtocol.h"

#define FAKE_EXPORT __attribute__((visibility("default")))

namespace {

struct FakeState {
  HostCallback callback = nullptr;  // from Initialize
  void* context = nullptr;          // from Initialize
  FakeReceived received;            // what the host sent
} gState;

}  // namespace

FAKE_EXPORT void* GetModule() { return &gState; }

extern "C" {

FAKE_EXPORT void Initialize(HostCallback callback, HostCallback, void* context, void*) {
  gState.callback = callback;
  gState.context = context;
  gState.received = FakeReceived();
}

FAKE_EXPORT int ReceiveMessage(void*, unsigned int message, HostArg a, HostArg) {
  switch (message) {
    case kFakeForward: {
      const auto* call = reinterpret_cast<const FakeCall*>(a);
      return gState.callback(gState.context, call->message, call->a, call->b);
    }
    case kFakeLastReceived: *reinterpret_cast<FakeReceived*>(a) = gState.received; return 0;
    case HostMessage::ReceiveEvent:
      ++gState.received.events;
      std::memcpy(&gState.received.event, reinterpret_cast<void*>(a),
                  sizeof(INCOMING_EVENT_RECORD));
      break;
    case HostMessage::MenuItemPressed:
      ++gState.received.presses;
      std::memcpy(&gState.received.item, reinterpret_cast<void*>(a), sizeof(mm_menu_item));
      break;
    default: break;
  }
  return 0;
}

#ifndef FAKE_WITHOUT_MODULE_INFO
FAKE_EXPORT int GetModuleInfo(MODULE_INFO* out) {
  if (out != nullptr) std::strcpy(out->name, "Fake module");
  return 0;
}
#endif

}  // extern "C"
