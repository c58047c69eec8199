// FolderLock.h: the one-writer lock of a data folder: an exclusive advisory
// lock (flock) on "<folder>/datastore.lock", held while the object lives.
//
// flock locks belong to an open file description, so a second module
// instance is refused the lock whether it runs in another process or is
// another copy of the library in this one. The lock goes with the process:
// a writer that dies leaves no stale lock behind.
//
// Thread-safety: none; one owner.

#ifndef DATASTORE_STORAGE_FOLDERLOCK_H_
#define DATASTORE_STORAGE_FOLDERLOCK_H_

#include <memory>
#include <string>

#include "Status.h"

class FolderLock {
 public:
  static constexpr char kLockFileName[] = "datastore.lock";

  // Takes the lock of `folder` without waiting; an error when another holds
  // it (reason kHeldElsewhere) or the lock file cannot be made.
  static Status Acquire(std::string const& folder, std::unique_ptr<FolderLock>* lock);
  static constexpr char kHeldElsewhere[] = "another writer holds the data folder";

  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  explicit FolderLock(int fd) : fd_(fd) {}
  const int fd_;  // the locked lock file
};

#endif  // DATASTORE_STORAGE_FOLDERLOCK_H_
