// Checksum.h: a fast 64-bit checksum of a byte block, for the write-ahead
// log: it tells bytes as written from zeros, torn sectors and stale frames.
// Not cryptographic. Runs at memory speed (four independent 64-bit lanes), so
// checking a large append costs a fraction of writing it.
//
// Thread-safety: a pure function.

#ifndef DATASTORE_STORAGE_CHECKSUM_H_
#define DATASTORE_STORAGE_CHECKSUM_H_

#include <cstddef>
#include <cstdint>

std::uint64_t Checksum64(const void* data, std::size_t size, std::uint64_t seed);

#endif  // DATASTORE_STORAGE_CHECKSUM_H_
