// RecordingFileSystem.h: the real file system with every operation that
// changes durable state noted in order while `recording` is set: a file made
// (a new directory entry), a write, a truncate, a sync of a file or of a
// folder. Reads pass through. Syncs are noted but not carried out: what a
// power cut keeps is the crash explorer's to decide (CrashStateTest.cpp), and
// real flushes would only slow it down.

#ifndef DATASTORE_TESTS_STORAGE_RECORDINGFILESYSTEM_H_
#define DATASTORE_TESTS_STORAGE_RECORDINGFILESYSTEM_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FileSystem.h"

namespace cjdtest {

struct DurableOp {
  enum Kind { kCreate, kWrite, kTruncate, kSync, kSyncDirectory, kSyncAll };
  Kind kind;
  std::string path;          // relative to the recorded folder; "" is the folder itself
  std::uint64_t offset = 0;  // write: where; truncate: the new size
  std::vector<unsigned char> bytes = {};  // write: what
};

class RecordingFileSystem : public FileSystem {
 public:
  explicit RecordingFileSystem(std::string folder) : folder_(std::move(folder)) {}

  bool recording = false;      // note operations now
  std::vector<DurableOp> ops;  // in the order they were made

  Status Open(std::string const& path, OpenMode mode,
              std::unique_ptr<RandomAccessFile>* file) override {
    const bool creates =
        mode == OpenMode::CreateNew || (mode == OpenMode::OpenOrCreate && !real_.Exists(path));
    std::unique_ptr<RandomAccessFile> real;
    Status status = real_.Open(path, mode, &real);
    if (!status.ok()) return status;
    if (creates) Note({DurableOp::kCreate, Relative(path)});
    *file = std::make_unique<File>(*this, std::move(real), Relative(path));
    return status;
  }
  Status Remove(std::string const& path) override { return real_.Remove(path); }
  Status SyncDirectory(std::string const& path) override {
    Note({DurableOp::kSyncDirectory, Relative(path)});
    return Status();
  }
  Status SyncAll(std::string const&) override {
    Note({DurableOp::kSyncAll, ""});
    return Status();
  }
  bool Exists(std::string const& path) override { return real_.Exists(path); }

 private:
  class File : public RandomAccessFile {
   public:
    File(RecordingFileSystem& owner, std::unique_ptr<RandomAccessFile> real, std::string relative)
        : owner_(owner), real_(std::move(real)), relative_(std::move(relative)) {}

    Status ReadAt(std::uint64_t offset, void* buffer, std::size_t n, std::size_t* got) override {
      return real_->ReadAt(offset, buffer, n, got);
    }
    Status WriteAt(std::uint64_t offset, const void* data, std::size_t n) override {
      const auto* bytes = static_cast<const unsigned char*>(data);
      if (owner_.recording)
        owner_.ops.push_back({DurableOp::kWrite, relative_, offset, {bytes, bytes + n}});
      return real_->WriteAt(offset, data, n);
    }
    Status Size(std::uint64_t* size) override { return real_->Size(size); }
    Status Truncate(std::uint64_t size) override {
      owner_.Note({DurableOp::kTruncate, relative_, size});
      return real_->Truncate(size);
    }
    Status Sync() override {
      owner_.Note({DurableOp::kSync, relative_});
      return Status();
    }
    std::string const& path() const override { return real_->path(); }

   private:
    RecordingFileSystem& owner_;              // where operations are noted
    std::unique_ptr<RandomAccessFile> real_;  // the real file
    const std::string relative_;              // its name in the notes
  };

  void Note(DurableOp op) {
    if (recording) ops.push_back(std::move(op));
  }
  std::string Relative(std::string const& path) const {
    if (path == folder_) return "";
    return path.starts_with(folder_ + "/") ? path.substr(folder_.size() + 1) : path;
  }

  const std::string folder_;  // recorded paths are relative to it
  FileSystem& real_ = FileSystem::Default();
};

}  // namespace cjdtest

#endif  // DATASTORE_TESTS_STORAGE_RECORDINGFILESYSTEM_H_
