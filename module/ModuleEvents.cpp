// Events and interfaces of CModule: each fills a zeroed record and sends it
// through the host callback.
#include <algorithm>
#include <cstring>

#include "Module.h"

namespace {

constexpr std::int32_t kSubscriptionTrailer = -1;   // last word of a subscription record
constexpr std::uint32_t kInterfaceRequestFlag = 1;  // fixed word of an interface request
constexpr char kUnknownEventFormat[] = "Can't emit event with name \"%s\"";

// Copies count bytes of name, but never more than name holds with its terminator.
void CopyBoundedName(char* field, QByteArray const& name, size_t count) {
  std::memcpy(field, name.constData(), std::min(count, static_cast<size_t>(name.size()) + 1));
}

}  // namespace

HostWord CModule::CreateEvent(QString const& name) {
  EVENT_CREATION_RECORD record{};
  CopyHostName(record.name, kHostNameField, name);
  CModule* module = GetModule();
  if (module != nullptr && module->callback() != nullptr) {
    module->callback()(module->context(), HostMessage::CreateEvent,
                       reinterpret_cast<HostArg>(&record), 0);
  }
  const HostWord handle = record.handle;  // copied out of the packed record
  if (!events_.contains(name)) events_.insert(name, handle);
  return handle;
}

void CModule::SubscribeEvent(QString const& name) {
  EVENT_SUBSCRIPTION_RECORD record{};
  CopyHostName(record.name, kHostNameField, name);
  record.moduleHandle = moduleHandle_;
  record.module = reinterpret_cast<HostWord>(this);
  record.minusOne = kSubscriptionTrailer;
  CallHost(HostMessage::SubscribeEvent, reinterpret_cast<HostArg>(&record), 0);
}

void CModule::UnSubscribeEvent() {
  EVENT_UNSUBSCRIPTION_RECORD record{moduleHandle_, reinterpret_cast<HostWord>(this)};
  CallHost(HostMessage::UnsubscribeAll, reinterpret_cast<HostArg>(&record), 0);
}

int CModule::EmitEvent(QString const& name, VDEvent& event) const {
  const auto found = events_.constFind(name);
  if (found == events_.cend()) {
    log_->ShowLogInfo(LOG_TYPE_1, LOG_LEVEL_4,
                      QString::asprintf(kUnknownEventFormat, name.toLatin1().constData()));
    return 1;
  }
  std::memset(event.name, 0, sizeof(event.name));
  CopyHostName(event.name, kHostNameField, name);
  event.eventHandle = found.value();
  CallHost(HostMessage::EmitEvent, static_cast<HostArg>(found.value()),
           reinterpret_cast<HostArg>(&event));
  return 0;
}

// The byte count for all three names comes from the first name alone.
HostWord CModule::getInterface(QString const& first, QString const& second,
                               QString const& third) const {
  const QByteArray a = first.toLatin1();
  const QByteArray b = second.toLatin1();
  const QByteArray c = third.toLatin1();
  const size_t count = std::min(static_cast<size_t>(a.size()), static_cast<size_t>(kHostNameField));
  INTERFACE_REQUEST_RECORD record{};
  CopyBoundedName(record.first, a, count);
  CopyBoundedName(record.third, c, count);
  CopyBoundedName(record.second, b, count);
  record.one = kInterfaceRequestFlag;
  HostWord slot = 0;
  record.resultSlot = reinterpret_cast<HostWord>(&slot);
  CModule* module = GetModule();
  if (module != nullptr && module->callback() != nullptr) {
    module->callback()(module->context(), HostMessage::GetInterface,
                       reinterpret_cast<HostArg>(&record), 0);
  }
  return slot;
}
