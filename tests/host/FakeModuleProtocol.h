// FakeModuleProtocol.h: the messages of the fake module that the host's own
// tests load. The fake forwards calls that a test describes to its host and
// remembers what the host sent it since its last Initialize.

#ifndef DATASTORE_TESTS_HOST_FAKEMODULEPROTOCOL_H_
#define DATASTORE_TESTS_HOST_FAKEMODULEPROTOCOL_H_

#include "HostBoundary.h"

constexpr unsigned int kFakeForward = 1;       // a: FakeCall*; calls the host, returns its result
constexpr unsigned int kFakeLastReceived = 2;  // a: FakeReceived* to fill

struct FakeCall {
  unsigned int message;  // message to send to the host
  HostArg a;             // its arguments
  HostArg b;
};

struct FakeReceived {
  int events = 0;                 // ReceiveEvent messages so far
  INCOMING_EVENT_RECORD event{};  // the last one
  int presses = 0;                // MenuItemPressed messages so far
  mm_menu_item item{};            // the last one
};

#endif  // DATASTORE_TESTS_HOST_FAKEMODULEPROTOCOL_H_
