// What the import dialog's tests share: export directories, a host callback
// that records every call, the module standing for GetModule() (its texts come
// back as "tr:" + key), and a store that records what it is asked to do.
#ifndef DATASTORE_TESTS_IMPORT_DIALOGTESTSUPPORT_H_
#define DATASTORE_TESTS_IMPORT_DIALOGTESTSUPPORT_H_

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ExportWriter.h"
#include "ImportTarget.h"
#include "Module.h"

class QTableWidget;

namespace dialog_test {

// MASTER with a header count of records.size() and zero-padded symbols.
void WriteMaster(QString const& dir, std::vector<ExportIndexRecord> const& records);
// F<n>.dat: an R-byte header record, then one R-byte record per row of MBF fields.
void WriteDataFile(QString const& dir, int fileNumber, int recordLength,
                   std::vector<std::vector<float>> const& rows);

// Seconds from 1970-01-01 00:00 to the date and time, both local.
std::int32_t LocalSeconds(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

struct HostCall {
  void* context;                          // first argument
  unsigned int message;                   // code
  std::vector<unsigned char> record;      // the record of a menu message, copied on entry
};

// The host: records every call, answers 3502 and 3506.
struct RecordingHost {
  std::vector<HostCall> calls;            // in order
  HostWord mainWindowId = 0;              // 3502; 0: left unanswered
  std::optional<std::int32_t> useWorkFolder;  // 3506

  static RecordingHost& instance();
  static int Callback(void* context, unsigned int message, HostArg a, HostArg b);
};

// The module behind GetModule(), wired to RecordingHost; reset per test.
CModule& TestModule();
void ResetHost();

// Candle points as the store receives them.
struct Candle {
  std::int32_t time;
  float open, high, low, close, volume;
  bool operator==(Candle const&) const = default;
};

class FakeTarget : public ImportTarget {
 public:
  struct Insert {
    void* handle;                         // request handle
    std::vector<Candle> points;           // copied during the call
    HostWord completionContext;           // must be 0
  };
  std::vector<SYMBOL_NAME_PERIOD> opened; // every OpenSymbol request
  std::vector<Insert> inserts;            // every InsertSymbolDataPost
  std::vector<void*> closed;              // every CloseSymbol handle
  bool refuseOpen = false;                // leave the handle null
  bool throwOnFirstInsert = false;        // throw std::runtime_error once
  std::function<void()> onOpen;           // runs inside OpenSymbol

  int OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) override;
  int InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) override;
  int CloseSymbol(void* handle) override;
};

// Clicks the check box of row in column 0 as a user does.
void ClickCheckBox(QTableWidget* table, int row);
std::u16string WideField(const char16_t* field, int units);

}  // namespace dialog_test

void PrintTo(QString const& text, std::ostream* out);  // readable failures

#endif  // DATASTORE_TESTS_IMPORT_DIALOGTESTSUPPORT_H_
