#include "EngineStore.h"
#include "Period.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace {

constexpr char16_t kName[] = u"CANDLES";
constexpr char16_t kProvider[] = u"Bench";
constexpr char kCode[] = "CANDLES";
constexpr SYMBOL_PERIOD kOneMinute{'I', 1, 0};

const unsigned short* Utf16(const char16_t* text) {
  return reinterpret_cast<const unsigned short*>(text);
}

}  // namespace

EngineStore::EngineStore(std::string id, std::filesystem::path const& folder, int scale)
    : CandleStore(std::move(id), folder, scale) {
  OpenEmpty();
}

EngineStore::~EngineStore() { Close(); }

void EngineStore::Open() {
  char code[sizeof(kCode)];
  std::copy(std::begin(kCode), std::end(kCode), code);
  symbol_ = std::make_unique<CSymbol>(&owner_, Utf16(kName), kOneMinute, Utf16(kName), code,
                                      Utf16(kProvider));
  for (const char* view : period::kCandleViews) {
    std::string name = view;
    symbol_->InsertDataPointView(DATA_POINT_FLOAT, name.data());
  }
  // The provider folder must exist; Create writes the header (the same one
  // again over an existing file) and closes the file.
  std::filesystem::path folder = workFolder() / QString::fromUtf16(kProvider).toStdString();
  std::filesystem::create_directories(folder);
  if (symbol_->Create(QString::fromStdString(folder.string())) != 0) {
    throw std::runtime_error("engine: cannot create the symbol in " + folder.string());
  }
  symbol_->Open();
}

void EngineStore::Close() { symbol_.reset(); }

void EngineStore::InsertRecords(const Candle* candles, int count) {
  // InsertData only reads the records; its signature is the host's.
  auto* records = reinterpret_cast<unsigned char*>(const_cast<Candle*>(candles));
  symbol_->InsertData(count, records);
}

int EngineStore::Get(GET_SYMBOL_DATA_REQUEST& request, Candle* out) {
  request.buffer = reinterpret_cast<HostWord>(out);
  symbol_->GetData(&request);
  return request.count;
}

int EngineStore::ReadRange(int first, int count, Candle* out) {
  // A time range also delivers the last record before its first time, so
  // asking from just after record `first` starts the result at `first`.
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = kGetTimeRange;
  request.firstTime = TimeOf(first) + 1;
  request.lastTime = TimeOf(first + count);
  request.count = count;
  return Get(request, out);
}

int EngineStore::ReadLast(int count, Candle* out) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = kGetNewest;
  request.count = count;
  return Get(request, out);
}

int EngineStore::Count() {
  // The oldest "as many as there are" records: counted without reading any.
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = kGetOldest;
  request.count = std::numeric_limits<std::int32_t>::max();
  symbol_->GetDataCount(&request);
  return request.count;
}
