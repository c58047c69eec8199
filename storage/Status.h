// Status.h: the outcome of a storage operation: success, or the operation
// that failed, the path it worked on and the system's (or our) reason.
//
// Storage returns a Status from every operation that can fail, from the
// file-system layer up through CSDTFile and CSymbol; whoever serves the
// request logs it once. Nothing is kept per thread.
//
// Thread-safety: a value type; distinct objects may be used from any thread.

#ifndef DATASTORE_STORAGE_STATUS_H_
#define DATASTORE_STORAGE_STATUS_H_

#include <string>
#include <utility>

class Status {
 public:
  Status() = default;  // success

  // A failure of `operation` on `path` because of `reason`.
  static Status Error(std::string operation, std::string path, std::string reason) {
    Status status;
    status.operation_ = std::move(operation);
    status.path_ = std::move(path);
    status.reason_ = std::move(reason);
    return status;
  }
  // A failure whose reason is the system's text for the error number.
  static Status FromErrno(std::string operation, std::string path, int error);

  bool ok() const { return operation_.empty(); }
  std::string const& operation() const { return operation_; }
  std::string const& path() const { return path_; }
  std::string const& reason() const { return reason_; }
  // "<operation> <path>: <reason>", or "ok".
  std::string ToString() const;

 private:
  std::string operation_;  // empty on success
  std::string path_;       // file or folder the operation worked on
  std::string reason_;     // why it failed
};

#endif  // DATASTORE_STORAGE_STATUS_H_
