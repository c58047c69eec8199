// DataStoreException.h: failures inside the data store, caught at the host
// message boundary, which logs the text and answers 0.
#ifndef DATASTORE_DATASTORE_DATASTOREEXCEPTION_H_
#define DATASTORE_DATASTORE_DATASTOREEXCEPTION_H_

#include <exception>
#include <string>

class DataStoreException : public std::exception {
 public:
  explicit DataStoreException(std::string message) : message_(std::move(message)) {}
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;  // what went wrong
};

class AddDataException : public DataStoreException {
 public:
  explicit AddDataException(std::string const& message) : DataStoreException(message) {}
};

#endif  // DATASTORE_DATASTORE_DATASTOREEXCEPTION_H_
