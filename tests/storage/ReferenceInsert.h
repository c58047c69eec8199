// ReferenceInsert.h: record-by-record insertion, the plain algorithm that
// CSymbol::InsertData must match byte for byte. Slow (a tail read and rewrite
// per record) and kept simple on purpose: it is the yardstick.

#ifndef DATASTORE_TESTS_STORAGE_REFERENCEINSERT_H_
#define DATASTORE_TESTS_STORAGE_REFERENCEINSERT_H_

#include "SDTFile.h"

// Inserts count records of recordSize bytes one at a time through the
// stream-like record access of an open file. Does nothing for null records,
// a count that is not positive, or writes disabled.
void ReferenceInsert(CSDTFile& file, unsigned int recordSize, int count, const unsigned char* records,
                     bool writeDisabled);

#endif  // DATASTORE_TESTS_STORAGE_REFERENCEINSERT_H_
