// DataPoint.h: view types, views, descriptions and the in-memory forms of
// the two record shapes the store creates (ticks: time, value, volume; candles:
// time, open, high, low, close, volume; every value a 32-bit float).
//
// Thread-safety: plain values.

#ifndef DATASTORE_STORAGE_DATAPOINT_H_
#define DATASTORE_STORAGE_DATAPOINT_H_

#include <cstdint>

enum DATA_POINT_TYPES : std::int32_t {
  DATA_POINT_CHAR = 0,    // 8-bit integer
  DATA_POINT_SHORT = 1,   // 16-bit integer
  DATA_POINT_INT = 2,     // 32-bit integer
  DATA_POINT_INT64 = 3,   // 64-bit integer
  DATA_POINT_FLOAT = 4,   // 32-bit IEEE float; every view the store creates
  DATA_POINT_DOUBLE = 5,  // 64-bit IEEE float
  DATA_POINT_STRING = 6,  // fixed 255-byte text
};

constexpr int kViewNameSize = 255;         // view name with its terminator
constexpr int kDescriptionTextSize = 255;  // description name or value with terminator

// A view as callers hand it in.
struct DATA_POINT_VIEW {
  DATA_POINT_TYPES type;     // value type
  char name[kViewNameSize];  // NUL-terminated
};

// A view as the symbol keeps it.
struct CDATA_POINT_VIEW {
  DATA_POINT_TYPES type;     // value type
  char name[kViewNameSize];  // NUL-terminated
};

struct STRING_DESCRIPTION {
  char name[kDescriptionTextSize];   // NUL-terminated
  char value[kDescriptionTextSize];  // NUL-terminated
};

#pragma pack(push, 1)
// A record holding only its time.
class CDataPoint {
 public:
  std::int32_t time = 0;  // seconds since 1970, the sort key
};

// A candle record, 24 bytes, exactly as stored.
class CCandleDataPoint : public CDataPoint {
 public:
  float open = 0;    // "Open"
  float high = 0;    // "High"
  float low = 0;     // "Low"
  float close = 0;   // "Close"
  float volume = 0;  // "Volume"

  CCandleDataPoint() = default;
  CCandleDataPoint(CCandleDataPoint const& other) = default;
  CCandleDataPoint& operator=(CCandleDataPoint const& other) {
    if (this == &other) return *this;
    time = other.time;
    open = other.open;
    high = other.high;
    low = other.low;
    close = other.close;
    volume = other.volume;
    return *this;
  }
};

// A tick record, 12 bytes, exactly as stored.
struct TickDataPoint {
  std::int32_t time;  // seconds since 1970
  float value;        // "Value"
  float volume;       // "Volume"
};
#pragma pack(pop)

static_assert(sizeof(CDataPoint) == 4);
static_assert(sizeof(CCandleDataPoint) == 24);
static_assert(sizeof(TickDataPoint) == 12);

#endif  // DATASTORE_STORAGE_DATAPOINT_H_
