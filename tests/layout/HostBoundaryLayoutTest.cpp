// Pins the size and every field offset of each host record. Built twice: for
// the 32-bit target (-m32), where the values are those of the host interface,
// and natively for 64-bit, where each HostWord field is 8 bytes. Plain C++ so
// that it builds for 32-bit without a 32-bit GoogleTest.
#include <cstddef>
#include <cstdio>
#include <initializer_list>

#include "HostBoundary.h"

namespace {

constexpr bool k32 = sizeof(void*) == 4;
constexpr size_t kSame = ~size_t{0};
int failures = 0;

// A size or offset with its 32-bit and 64-bit values; one value holds on both.
struct Check {
  const char* what;
  size_t actual;
  size_t on32;
  size_t on64 = kSame;
};

void Expect(const char* record, std::initializer_list<Check> checks) {
  for (const Check& c : checks) {
    const size_t expected = k32 || c.on64 == kSame ? c.on32 : c.on64;
    if (c.actual == expected) continue;
    std::printf("FAIL %s.%s: %zu, expected %zu\n", record, c.what, c.actual, expected);
    ++failures;
  }
}

// RECORD(T, SIZE(...), AT(field, ...), ...) checks sizeof(T) and the offsets of the fields.
#define RECORD(T, ...)         \
  do {                         \
    using R = T;               \
    Expect(#T, {__VA_ARGS__}); \
  } while (0)
#define SIZE(...) (Check{"sizeof", sizeof(R), __VA_ARGS__})
#define AT(field, ...) (Check{#field, offsetof(R, field), __VA_ARGS__})

}  // namespace

int main() {
  Expect("words", {{"HostWord", sizeof(HostWord), 4, 8},
                   {"HostArg", sizeof(HostArg), 4, 8},
                   {"void*", sizeof(void*), 4, 8}});
  RECORD(MODULE_INFO, SIZE(2315), AT(name, 0), AT(description, 255), AT(reserved1, 510),
         AT(number3, 1279), AT(number2, 1283), AT(number1, 1287), AT(kind, 1291),
         AT(contextName, 1295), AT(extra, 1315), AT(reserved2, 1319));
  RECORD(coreUncStringType, SIZE(9, 13), AT(length, 0), AT(charSize, 4), AT(data, 5));
  RECORD(LogRecord, SIZE(16, 24), AT(moduleName, 0), AT(msgType, 4, 8), AT(msgLevel, 8, 12),
         AT(text, 12, 16));

  RECORD(EVENT_CREATION_RECORD, SIZE(259, 263), AT(name, 0), AT(handle, 255));
  RECORD(EVENT_SUBSCRIPTION_RECORD, SIZE(271, 279), AT(name, 0), AT(zero, 255),
         AT(moduleHandle, 259), AT(module, 263, 267), AT(minusOne, 267, 275));
  RECORD(EVENT_UNSUBSCRIPTION_RECORD, SIZE(8, 16), AT(moduleHandle, 0), AT(module, 4, 8));
  RECORD(INTERFACE_REQUEST_RECORD, SIZE(773, 777), AT(first, 0), AT(third, 255), AT(second, 510),
         AT(one, 765), AT(resultSlot, 769));
  RECORD(VDEvent, SIZE(271, 279), AT(sender, 0), AT(word4, 4, 8), AT(eventHandle, 8, 12),
         AT(word12, 12, 20), AT(name, 16, 24));
  RECORD(INCOMING_EVENT_RECORD, SIZE(534, 542), AT(addressedHostId, 0), AT(addressedModule, 4, 8),
         AT(eventCode, 530, 538));

  RECORD(TRANSLATION_INSERT_RECORD, SIZE(3072), AT(context, 0), AT(key, 1024), AT(text, 2048));
  RECORD(LANGUAGE_ENTRY, SIZE(769), AT(name, 0), AT(text2, 255), AT(text3, 510),
         AT(isCurrent, 765));
  RECORD(LANGUAGE_LIST_RECORD, SIZE(8, 12), AT(count, 0), AT(entries, 4));
  RECORD(DATETIME_FORMATTER_RECORD, SIZE(8, 16), AT(qDateTimeFormatter, 0),
         AT(timeValueFormatter, 4, 8));

  RECORD(REGISTRATION_RECORD, SIZE(773, 781), AT(kind, 0), AT(maker, 255), AT(uniqueName, 510),
         AT(context2, 765), AT(moduleOrHandle, 769, 773));
  RECORD(FOLDER_REQUEST_RECORD, SIZE(2052), AT(folderType, 0), AT(path, 4));
  RECORD(SOURCE_RECORD, SIZE(765), AT(field0, 0), AT(provider, 255), AT(field2, 510));
  RECORD(MENU_PARENT_RECORD, SIZE(518), AT(parentKey, 0), AT(value0, 510), AT(value1, 514));
  RECORD(mm_menu_item, SIZE(518, 522), AT(text, 0), AT(owner, 510), AT(itemId, 514, 518));

  RECORD(SYMBOL_PERIOD, SIZE(9), AT(kind, 0), AT(length, 1), AT(extra, 5));
  RECORD(SYMBOL_NAME_PERIOD, SIZE(1539), AT(text0, 0), AT(provider, 255), AT(name, 765),
         AT(code, 1275), AT(period, 1530), AT(period.length, 1531), AT(period.extra, 1535));
  RECORD(SYMBOL_NAME_PERIOD_PATH, SIZE(2049), AT(symbol, 0), AT(path, 1539));
  RECORD(GET_SYMBOL_DATA_REQUEST, SIZE(32, 44), AT(handle, 0), AT(mode, 4, 8), AT(firstTime, 8, 12),
         AT(lastTime, 12, 16), AT(count, 16, 20), AT(buffer, 20, 24), AT(completionContext, 24, 32),
         AT(completionCode, 28, 40));
  RECORD(INSERT_SYMBOL_DATA_REQUEST, SIZE(20, 32), AT(handle, 0), AT(number, 4, 8), AT(data, 8, 12),
         AT(completionContext, 12, 20), AT(completionCode, 16, 28));

  std::printf("%s host boundary layout, %d-bit: %d failure(s)\n", failures ? "FAIL" : "OK",
              k32 ? 32 : 64, failures);
  return failures == 0 ? 0 : 1;
}
