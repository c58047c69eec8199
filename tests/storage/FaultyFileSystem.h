// FaultyFileSystem.h: the real file system with faults injected on demand:
// a failing (or half-done) n-th write, or the process's death there, a short
// n-th read, short reads throughout, failing renames and opens. It also counts
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
  bool failRename = false;     // every Rename fails
  std::string failOpen = {};   // opens of paths ending in this fail (empty: none)
  bool failOpenOfExisting = false;  // ...only opens that create nothing: a passing failure (no descriptor)
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

  std::unique_ptr<RandomAccessFile> Open(std::string const& path, OpenMode mode) override {
    const bool creates = mode == OpenMode::CreateTruncate || mode == OpenMode::CreateNew;
    if (!plan.failOpen.empty() && path.ends_with(plan.failOpen) && !(creates && plan.failOpenOfExisting)) {
      ++faults;
      errno = EACCES;
      return nullptr;
    }
    std::unique_ptr<RandomAccessFile> file = real_.Open(path, mode);
    if (file == nullptr) return nullptr;
    return std::make_unique<File>(*this, std::move(file));
  }

  bool Rename(std::string const& from, std::string const& to) override {
    if (plan.failRename) {
      ++faults;
      return false;
    }
    return real_.Rename(from, to);
  }

  bool Remove(std::string const& path) override { return real_.Remove(path); }

 private:
  class File : public RandomAccessFile {
   public:
    File(FaultyFileSystem& owner, std::unique_ptr<RandomAccessFile> real)
        : owner_(owner), real_(std::move(real)) {}

    std::int64_t ReadAt(std::uint64_t offset, void* buffer, std::size_t n) override {
      const std::int64_t size = real_->Size();
      if (size >= 0 && offset + n > static_cast<std::uint64_t>(size)) ++owner_.readsPastEnd;
      const bool shortened = ++owner_.reads == owner_.plan.shortRead || (owner_.plan.allReadsShort && n > 1);
      if (shortened) ++owner_.faults;
      const std::int64_t got = real_->ReadAt(offset, buffer, shortened ? n / 2 : n);
      if (got > 0) owner_.bytesRead += got;
      return got;
    }

    bool WriteAt(std::uint64_t offset, const void* data, std::size_t n) override {
      if (++owner_.writes != owner_.plan.failWrite) return real_->WriteAt(offset, data, n);
      ++owner_.faults;
      if (owner_.plan.writeHalf) real_->WriteAt(offset, data, n / 2);
      if (owner_.plan.dieAtWrite) _exit(kDiedAtWrite);
      errno = ENOSPC;
      return false;
    }

    std::int64_t Size() override { return real_->Size(); }
    bool Truncate(std::uint64_t size) override { return real_->Truncate(size); }
    bool Sync() override { return real_->Sync(); }

   private:
    FaultyFileSystem& owner_;
    std::unique_ptr<RandomAccessFile> real_;
  };

  FileSystem& real_ = FileSystem::Default();
};

}  // namespace cjdtest

#endif  // DATASTORE_TESTS_STORAGE_FAULTYFILESYSTEM_H_
