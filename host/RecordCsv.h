// RecordCsv.h: data point records as CSV text, and their times as text.
//
// A time is a signed 32-bit count of seconds since 1970-01-01 UTC, written
// either as that number ("1704164645") or in ISO 8601 UTC
// ("2024-01-02T03:04:05Z"; a date alone is its midnight, the Z may be left
// out and the time is UTC all the same).
//
// CSV is a header line, then one line per record, fields separated by
// commas, without quoting. WriteCsv writes the columns time, epoch and then
// the layout's views, each value in the shortest form that reads back as the
// same float. ReadCsv wants a header that names epoch or time (or both, which
// must then agree on every line) and every view of the layout exactly once,
// in any order, names compared ignoring ASCII case. It skips blank lines,
// ignores a CR before a line end and trims spaces and tabs around fields.
//
// Records are packed as the data store stores them: the time, then one
// native float per view (RecordLayout).
//
// Thread-safety: free functions without shared state.

#ifndef DATASTORE_HOST_RECORDCSV_H_
#define DATASTORE_HOST_RECORDCSV_H_

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "SymbolRequest.h"

// Parses an epoch number or an ISO 8601 UTC time into *time. Returns false
// and sets *error for other text and for times outside the 32-bit range.
bool ParseTime(std::string_view text, std::int32_t* time, std::string* error);
// The ISO 8601 UTC form of time, e.g. "2024-01-02T03:04:05Z".
std::string FormatTime(std::int32_t time);

// Writes the header line and count records of layout.
// REQUIRES: records holds count * layout.recordSize() bytes.
void WriteCsv(std::ostream& out, const RecordLayout& layout, const unsigned char* records,
              std::size_t count);

// Reads CSV up to the end of in and appends its records, packed in layout,
// to *records. On the first fault returns false, leaves *records as it was
// and sets *error to "line N: " and the problem.
bool ReadCsv(std::istream& in, const RecordLayout& layout, std::vector<unsigned char>* records,
             std::string* error);

#endif  // DATASTORE_HOST_RECORDCSV_H_
