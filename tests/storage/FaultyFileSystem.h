// FaultyFileSystem.h: the real file system with faults injected on demand:
// a failing (or half-done) n-th write, or the process's death there, a short
// n-th read, short reads throughout, failing opens. It also counts
// the bytes read and the reads that reach past the end of their file.

#ifndef DATASTORE_TESTS_STORAGE_FAULTYFILESYSTEM_H_
#define DATASTORE_TESTS_STORAGE_FAULTYFILESYSTEM_H_

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>

#include "FileSystem.h"

namespace cjdtest {

constexpr int kDiedAtWrite = 86;  // exit status of a process ended by dieAtWrite

struct FaultPlan {
  int failWrite = 0;           // this WriteAt from now (1 = the next one) fails; 0: none
  bool writeHalf = false;      // the failing write still writes its first half
  bool dieAtWrite = false;     // the failing write ends the process (_exit) instead of failing
  int shortRead = 0;           // this ReadAt from now returns half its bytes; 0: none
  bool allReadsShort = false;  // every ReadAt of more than one byte returns half its bytes
  std::string failOpen = {};   // opens of paths ending in this fail (empty: none)
  bool failOpenOfExisting =
      false;  // ...only opens that create nothing: a passing failure (no descriptor)
};

class FaultyFileSystem : public FileSystem {
 public:
  FaultPlan plan;        // what to break; counting starts at Arm()
  int writes = 0;        // WriteAt calls since Arm()
  int reads = 0;         // ReadAt calls since Arm()
  int faults = 0;        // faults injected since Arm()
  int readsPastEnd = 0;  // ReadAt calls that asked for bytes beyond the file's end
  std::int64_t bytesRead = 0;

  void Arm(FaultPlan next) {
    plan = std::move(next);
    writes = reads = faults = readsPastEnd = 0;
    bytesRead = 0;
  }

  Status Open(std::string const& path, OpenMode mode,
              std::unique_ptr<RandomAccessFile>* file) override {
    const bool creates = mode == OpenMode::CreateNew || mode == OpenMode::OpenOrCreate;
    if (!plan.failOpen.empty() && path.ends_with(plan.failOpen) &&
        !(creates && plan.failOpenOfExisting)) {
      ++faults;
      return Status::FromErrno("open", path, EACCES);
    }
    std::unique_ptr<RandomAccessFile> real;
    Status status = real_.Open(path, mode, &real);
    if (status.ok()) *file = std::make_unique<File>(*this, std::move(real));
    return status;
  }

  Status Remove(std::string const& path) override { return real_.Remove(path); }
  Status SyncDirectory(std::string const& path) override { return real_.SyncDirectory(path); }
  Status SyncAll(std::string const& folder) override { return real_.SyncAll(folder); }
  bool Exists(std::string const& path) override { return real_.Exists(path); }

 private:
  class File : public RandomAccessFile {
   public:
    File(FaultyFileSystem& owner, std::unique_ptr<RandomAccessFile> real)
        : owner_(owner), real_(std::move(real)) {}

    Status ReadAt(std::uint64_t offset, void* buffer, std::size_t n, std::size_t* got) override {
      std::uint64_t size = 0;
      if (real_->Size(&size).ok() && offset + n > size) ++owner_.readsPastEnd;
      const bool shortened =
          ++owner_.reads == owner_.plan.shortRead || (owner_.plan.allReadsShort && n > 1);
      if (shortened) ++owner_.faults;
      Status status = real_->ReadAt(offset, buffer, shortened ? n / 2 : n, got);
      if (status.ok()) owner_.bytesRead += static_cast<std::int64_t>(*got);
      return status;
    }

    Status WriteAt(std::uint64_t offset, const void* data, std::size_t n) override {
      if (++owner_.writes != owner_.plan.failWrite) return real_->WriteAt(offset, data, n);
      ++owner_.faults;
      if (owner_.plan.writeHalf) real_->WriteAt(offset, data, n / 2);
      if (owner_.plan.dieAtWrite) _exit(kDiedAtWrite);
      return Status::FromErrno("write", path(), ENOSPC);
    }

    Status Size(std::uint64_t* size) override { return real_->Size(size); }
    Status Truncate(std::uint64_t size) override { return real_->Truncate(size); }
    Status Sync() override { return real_->Sync(); }
    std::string const& path() const override { return real_->path(); }

   private:
    FaultyFileSystem& owner_;
    std::unique_ptr<RandomAccessFile> real_;
  };

  FileSystem& real_ = FileSystem::Default();
};

}  // namespace cjdtest

#endif  // DATASTORE_TESTS_STORAGE_FAULTYFILESYSTEM_H_
