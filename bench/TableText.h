// TableText.h: the cells of the benchmarks' printed tables.
//
// Thread-safety: pure functions.

#ifndef DATASTORE_BENCH_TABLETEXT_H_
#define DATASTORE_BENCH_TABLETEXT_H_

#include <string>

// text right-aligned in width columns; a longer text gets one leading space.
inline std::string Cell(std::string const& text, int width) {
  return text.size() >= std::size_t(width) ? " " + text
                                           : std::string(width - text.size(), ' ') + text;
}

// text left-aligned in width columns; a longer text gets one trailing space.
inline std::string Left(std::string const& text, int width) {
  return text.size() >= std::size_t(width) ? text + " "
                                           : text + std::string(width - text.size(), ' ');
}

#endif  // DATASTORE_BENCH_TABLETEXT_H_
