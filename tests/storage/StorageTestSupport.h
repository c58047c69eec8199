// Helpers shared by the storage tests: a writable owner, symbols of the two
// shapes in a temporary folder, and raw file bytes.
#ifndef DATASTORE_TESTS_STORAGE_STORAGETESTSUPPORT_H_
#define DATASTORE_TESTS_STORAGE_STORAGETESTSUPPORT_H_

#include <QFile>
#include <QTemporaryDir>
#include <memory>
#include <string>
#include <vector>

#include "DataPoint.h"
#include "Symbol.h"

class TestOwner : public SymbolOwner {
 public:
  explicit TestOwner(bool writeEnabled = true) : writeEnabled_(writeEnabled) {}
  bool IsWriteEnabled() const override { return writeEnabled_; }

 private:
  bool writeEnabled_;  // what the symbols are told
};

inline std::u16string U16(const char* text) { return QString::fromLatin1(text).toStdU16String(); }

// A symbol made as the store makes one from a request: name, period, code,
// provider, and the default views of its period.
inline std::unique_ptr<CSymbol> MakeSymbol(SymbolOwner* owner, const char* name, SYMBOL_PERIOD period,
                                           const char* code = "EURUSD", const char* provider = "Demo") {
  const std::u16string wideName = U16(name);
  const std::u16string wideProvider = U16(provider);
  std::string codeText = code;
  auto symbol = std::make_unique<CSymbol>(
      owner, reinterpret_cast<const unsigned short*>(wideName.c_str()), period,
      reinterpret_cast<const unsigned short*>(wideName.c_str()), codeText.data(),
      reinterpret_cast<const unsigned short*>(wideProvider.c_str()));
  const bool ticks = period.kind == 'I' && period.length == 0;
  const std::vector<std::string> views = ticks ? std::vector<std::string>{"Value", "Volume"}
                                               : std::vector<std::string>{"Open", "High", "Low", "Close", "Volume"};
  for (std::string view : views) symbol->InsertDataPointView(DATA_POINT_FLOAT, view.data());
  return symbol;
}

inline std::vector<unsigned char> FileBytes(std::string const& path) {
  QFile file(QString::fromStdString(path));
  if (!file.open(QIODevice::ReadOnly)) return {};
  const QByteArray bytes = file.readAll();
  return std::vector<unsigned char>(bytes.begin(), bytes.end());
}

inline CCandleDataPoint Candle(std::int32_t time, float close = 1.0f) {
  CCandleDataPoint point;
  point.time = time;
  point.open = close - 1;
  point.high = close + 1;
  point.low = close - 2;
  point.close = close;
  point.volume = 10;
  return point;
}

#endif  // DATASTORE_TESTS_STORAGE_STORAGETESTSUPPORT_H_
