// Pins the size and every field offset of each host record. Built twice: for
// the 32-bit target (-m32), where the values are those of the host interface,
// and natively for 64-bit, where each HostWord field is 8 bytes. Plain C++ so
// that it builds for 32-bit without a 32-bit GoogleTest.
#include <cstddef>
#include <cstdio>

#include "HostBoundary.h"

namespace {

constexpr bool k32 = sizeof(void*) == 4;
int failures = 0;

void Expect(const char* what, size_t actual, size_t on32, size_t on64) {
  const size_t expected = k32 ? on32 : on64;
  if (actual == expected) return;
  std::printf("FAIL %s: %zu, expected %zu\n", what, actual, expected);
  ++failures;
}

#define SIZE(T, on32, on64) Expect("sizeof(" #T ")", sizeof(T), on32, on64)
#define AT(T, field, on32, on64) Expect(#T "." #field, offsetof(T, field), on32, on64)

void ModuleInfo() {
  SIZE(MODULE_INFO, 2315, 2315);
  AT(MODULE_INFO, name, 0, 0);
  AT(MODULE_INFO, description, 255, 255);
  AT(MODULE_INFO, reserved1, 510, 510);
  AT(MODULE_INFO, number3, 1279, 1279);
  AT(MODULE_INFO, number2, 1283, 1283);
  AT(MODULE_INFO, number1, 1287, 1287);
  AT(MODULE_INFO, kind, 1291, 1291);
  AT(MODULE_INFO, contextName, 1295, 1295);
  AT(MODULE_INFO, extra, 1315, 1315);
  AT(MODULE_INFO, reserved2, 1319, 1319);
}

void StringsAndLog() {
  SIZE(coreUncStringType, 9, 13);
  AT(coreUncStringType, length, 0, 0);
  AT(coreUncStringType, charSize, 4, 4);
  AT(coreUncStringType, data, 5, 5);
  SIZE(LogRecord, 16, 24);
  AT(LogRecord, moduleName, 0, 0);
  AT(LogRecord, msgType, 4, 8);
  AT(LogRecord, msgLevel, 8, 12);
  AT(LogRecord, text, 12, 16);
}

void Events() {
  SIZE(EVENT_CREATION_RECORD, 259, 263);
  AT(EVENT_CREATION_RECORD, name, 0, 0);
  AT(EVENT_CREATION_RECORD, handle, 255, 255);
  SIZE(EVENT_SUBSCRIPTION_RECORD, 271, 279);
  AT(EVENT_SUBSCRIPTION_RECORD, name, 0, 0);
  AT(EVENT_SUBSCRIPTION_RECORD, zero, 255, 255);
  AT(EVENT_SUBSCRIPTION_RECORD, moduleHandle, 259, 259);
  AT(EVENT_SUBSCRIPTION_RECORD, module, 263, 267);
  AT(EVENT_SUBSCRIPTION_RECORD, minusOne, 267, 275);
  SIZE(EVENT_UNSUBSCRIPTION_RECORD, 8, 16);
  AT(EVENT_UNSUBSCRIPTION_RECORD, moduleHandle, 0, 0);
  AT(EVENT_UNSUBSCRIPTION_RECORD, module, 4, 8);
  SIZE(INTERFACE_REQUEST_RECORD, 773, 777);
  AT(INTERFACE_REQUEST_RECORD, first, 0, 0);
  AT(INTERFACE_REQUEST_RECORD, third, 255, 255);
  AT(INTERFACE_REQUEST_RECORD, second, 510, 510);
  AT(INTERFACE_REQUEST_RECORD, one, 765, 765);
  AT(INTERFACE_REQUEST_RECORD, resultSlot, 769, 769);
  SIZE(VDEvent, 271, 279);
  AT(VDEvent, sender, 0, 0);
  AT(VDEvent, word4, 4, 8);
  AT(VDEvent, eventHandle, 8, 12);
  AT(VDEvent, word12, 12, 20);
  AT(VDEvent, name, 16, 24);
  SIZE(INCOMING_EVENT_RECORD, 534, 542);
  AT(INCOMING_EVENT_RECORD, addressedHostId, 0, 0);
  AT(INCOMING_EVENT_RECORD, addressedModule, 4, 8);
  AT(INCOMING_EVENT_RECORD, eventCode, 530, 538);
}

void TranslationLanguagesTime() {
  SIZE(TRANSLATION_INSERT_RECORD, 3072, 3072);
  AT(TRANSLATION_INSERT_RECORD, context, 0, 0);
  AT(TRANSLATION_INSERT_RECORD, key, 1024, 1024);
  AT(TRANSLATION_INSERT_RECORD, text, 2048, 2048);
  SIZE(LANGUAGE_ENTRY, 769, 769);
  AT(LANGUAGE_ENTRY, name, 0, 0);
  AT(LANGUAGE_ENTRY, text2, 255, 255);
  AT(LANGUAGE_ENTRY, text3, 510, 510);
  AT(LANGUAGE_ENTRY, isCurrent, 765, 765);
  SIZE(LANGUAGE_LIST_RECORD, 8, 12);
  AT(LANGUAGE_LIST_RECORD, count, 0, 0);
  AT(LANGUAGE_LIST_RECORD, entries, 4, 4);
  SIZE(DATETIME_FORMATTER_RECORD, 8, 16);
  AT(DATETIME_FORMATTER_RECORD, qDateTimeFormatter, 0, 0);
  AT(DATETIME_FORMATTER_RECORD, timeValueFormatter, 4, 8);
}

void RegistrationFoldersMenu() {
  SIZE(REGISTRATION_RECORD, 773, 781);
  AT(REGISTRATION_RECORD, kind, 0, 0);
  AT(REGISTRATION_RECORD, maker, 255, 255);
  AT(REGISTRATION_RECORD, uniqueName, 510, 510);
  AT(REGISTRATION_RECORD, context2, 765, 765);
  AT(REGISTRATION_RECORD, moduleOrHandle, 769, 773);
  SIZE(FOLDER_REQUEST_RECORD, 2052, 2052);
  AT(FOLDER_REQUEST_RECORD, folderType, 0, 0);
  AT(FOLDER_REQUEST_RECORD, path, 4, 4);
  SIZE(SOURCE_RECORD, 765, 765);
  AT(SOURCE_RECORD, field0, 0, 0);
  AT(SOURCE_RECORD, provider, 255, 255);
  AT(SOURCE_RECORD, field2, 510, 510);
  SIZE(MENU_PARENT_RECORD, 518, 518);
  AT(MENU_PARENT_RECORD, parentKey, 0, 0);
  AT(MENU_PARENT_RECORD, value0, 510, 510);
  AT(MENU_PARENT_RECORD, value1, 514, 514);
  SIZE(mm_menu_item, 518, 522);
  AT(mm_menu_item, text, 0, 0);
  AT(mm_menu_item, owner, 510, 510);
  AT(mm_menu_item, itemId, 514, 518);
}

void SymbolRecords() {
  SIZE(SYMBOL_PERIOD, 9, 9);
  AT(SYMBOL_PERIOD, kind, 0, 0);
  AT(SYMBOL_PERIOD, length, 1, 1);
  AT(SYMBOL_PERIOD, extra, 5, 5);
  SIZE(SYMBOL_NAME_PERIOD, 1539, 1539);
  AT(SYMBOL_NAME_PERIOD, text0, 0, 0);
  AT(SYMBOL_NAME_PERIOD, provider, 255, 255);
  AT(SYMBOL_NAME_PERIOD, name, 765, 765);
  AT(SYMBOL_NAME_PERIOD, code, 1275, 1275);
  AT(SYMBOL_NAME_PERIOD, period, 1530, 1530);
  Expect("SYMBOL_NAME_PERIOD.period.length", offsetof(SYMBOL_NAME_PERIOD, period.length), 1531, 1531);
  Expect("SYMBOL_NAME_PERIOD.period.extra", offsetof(SYMBOL_NAME_PERIOD, period.extra), 1535, 1535);
  SIZE(SYMBOL_NAME_PERIOD_PATH, 2049, 2049);
  AT(SYMBOL_NAME_PERIOD_PATH, symbol, 0, 0);
  AT(SYMBOL_NAME_PERIOD_PATH, path, 1539, 1539);
  SIZE(GET_SYMBOL_DATA_REQUEST, 32, 44);
  AT(GET_SYMBOL_DATA_REQUEST, handle, 0, 0);
  AT(GET_SYMBOL_DATA_REQUEST, mode, 4, 8);
  AT(GET_SYMBOL_DATA_REQUEST, firstTime, 8, 12);
  AT(GET_SYMBOL_DATA_REQUEST, lastTime, 12, 16);
  AT(GET_SYMBOL_DATA_REQUEST, count, 16, 20);
  AT(GET_SYMBOL_DATA_REQUEST, buffer, 20, 24);
  AT(GET_SYMBOL_DATA_REQUEST, completionContext, 24, 32);
  AT(GET_SYMBOL_DATA_REQUEST, completionCode, 28, 40);
  SIZE(INSERT_SYMBOL_DATA_REQUEST, 20, 32);
  AT(INSERT_SYMBOL_DATA_REQUEST, handle, 0, 0);
  AT(INSERT_SYMBOL_DATA_REQUEST, number, 4, 8);
  AT(INSERT_SYMBOL_DATA_REQUEST, data, 8, 12);
  AT(INSERT_SYMBOL_DATA_REQUEST, completionContext, 12, 20);
  AT(INSERT_SYMBOL_DATA_REQUEST, completionCode, 16, 28);
}

void Words() {
  Expect("sizeof(HostWord)", sizeof(HostWord), 4, 8);
  Expect("sizeof(HostArg)", sizeof(HostArg), 4, 8);
  Expect("sizeof(void*)", sizeof(void*), 4, 8);
}

}  // namespace

int main() {
  Words();
  ModuleInfo();
  StringsAndLog();
  Events();
  TranslationLanguagesTime();
  RegistrationFoldersMenu();
  SymbolRecords();
  std::printf("%s host boundary layout, %d-bit: %d failure(s)\n", failures ? "FAIL" : "OK",
              k32 ? 32 : 64, failures);
  return failures == 0 ? 0 : 1;
}
