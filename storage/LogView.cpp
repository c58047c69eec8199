#include "LogView.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace {

constexpr char kReadOnly[] = "the view of the log only reads";

Status ReadOnly(std::string operation, std::string const& path) {
  return Status::Error(std::move(operation), path, kReadOnly);
}

// The sizes of a file as recovery leaves it: the writes put over the disk
// bytes, then the file cut back to the plan's end.
struct PlannedSize {
  std::uint64_t disk = 0;   // on disk now (0 when the file is missing)
  std::uint64_t grown = 0;  // after the writes
  std::uint64_t shown = 0;  // after the cut
};

Status SizeOf(RandomAccessFile* disk, wal::FilePlan const& plan, PlannedSize* size) {
  if (disk != nullptr) {
    Status status = disk->Size(&size->disk);
    if (!status.ok()) return status;
  }
  size->grown = size->disk;
  for (const wal::Frame* frame : plan.writes)
    size->grown = std::max(size->grown, frame->offset + frame->payload.size());
  size->shown = plan.cutTo ? std::min(size->grown, *plan.cutTo) : size->grown;
  return Status();
}

// True when the disk already holds the frame's bytes (a checkpoint put them
// there and the log was not yet started again).
bool DiskHolds(RandomAccessFile* disk, wal::Frame const& frame) {
  if (disk == nullptr) return false;
  std::vector<unsigned char> bytes(frame.payload.size());
  std::size_t got = 0;
  return disk->ReadAt(frame.offset, bytes.data(), bytes.size(), &got).ok() && got == bytes.size() &&
         bytes == frame.payload;
}

// A file the log names, as recovery would leave it.
class PlannedFile : public RandomAccessFile {
 public:
  PlannedFile(std::unique_ptr<RandomAccessFile> disk, wal::FilePlan const& plan, PlannedSize size,
              std::string path)
      : disk_(std::move(disk)), plan_(plan), size_(size), path_(std::move(path)) {}

  Status ReadAt(std::uint64_t offset, void* buffer, std::size_t n, std::size_t* got) override {
    *got = 0;
    if (offset >= size_.shown) return Status();
    n = static_cast<std::size_t>(std::min<std::uint64_t>(n, size_.shown - offset));
    if (n == 0) return Status();
    auto* bytes = static_cast<unsigned char*>(buffer);
    std::memset(bytes, 0,
                n);  // between the disk's end and a write, as in a file written past its end
    if (disk_ != nullptr && offset < size_.disk) {
      std::size_t read = 0;
      Status status =
          disk_->ReadAt(offset, bytes, std::min<std::uint64_t>(n, size_.disk - offset), &read);
      if (!status.ok()) return status;
    }
    const std::uint64_t end = offset + n;
    for (const wal::Frame* frame : plan_.writes) {
      const std::uint64_t from = std::max(offset, frame->offset);
      const std::uint64_t to = std::min(end, frame->offset + frame->payload.size());
      if (from < to)
        std::memcpy(bytes + (from - offset), frame->payload.data() + (from - frame->offset),
                    to - from);
    }
    *got = n;
    return Status();
  }

  Status WriteAt(std::uint64_t, const void*, std::size_t) override {
    return ReadOnly("write", path_);
  }
  Status Size(std::uint64_t* size) override {
    *size = size_.shown;
    return Status();
  }
  Status Truncate(std::uint64_t) override { return ReadOnly("truncate", path_); }
  Status Sync() override { return ReadOnly("sync", path_); }
  std::string const& path() const override { return path_; }

 private:
  std::unique_ptr<RandomAccessFile> disk_;  // null: the file is missing
  wal::FilePlan const& plan_;               // owned by the file system
  const PlannedSize size_;                  // taken at open
  const std::string path_;                  // as opened
};

}  // namespace

std::string AbsolutePath(std::string const& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return (error ? std::filesystem::path(path) : absolute).lexically_normal().string();
}

std::string DataFolderOf(FileSystem& fileSystem, std::string const& path) {
  std::filesystem::path folder = std::filesystem::path(path).parent_path();
  for (;;) {
    if (fileSystem.Exists(wal::JoinPath(folder.string(), wal::kLogFileName)))
      return folder.string();
    if (!folder.has_relative_path()) return {};
    folder = folder.parent_path();
  }
}

LoggedFileSystem::FolderLog& LoggedFileSystem::LogOf(std::string const& folder) {
  std::unique_ptr<FolderLog>& log = logs_[folder];
  if (log != nullptr) return *log;
  log = std::make_unique<FolderLog>();
  log->folder = folder;
  const std::string path = wal::JoinPath(folder, wal::kLogFileName);
  std::unique_ptr<RandomAccessFile> file;
  Status status = disk_.Open(path, OpenMode::ReadOnly, &file);
  if (status.ok()) status = wal::ReadLog(*file, &log->contents);
  if (status.ok()) status = wal::PlanRecovery(disk_, folder, log->contents, &log->plans);
  if (!status.ok())
    log->status =
        Status::Error("read", path, "the log " + path + " cannot be read: " + status.reason());
  return *log;
}

Status LoggedFileSystem::PlanOf(std::string const& path, const wal::FilePlan** plan) {
  *plan = nullptr;
  const std::string absolute = AbsolutePath(path);
  const std::string folder = DataFolderOf(disk_, absolute);
  if (folder.empty()) return Status();
  FolderLog const& log = LogOf(folder);
  if (!log.status.ok()) return log.status;
  const std::string relative =
      std::filesystem::path(absolute).lexically_relative(folder).generic_string();
  const auto found =
      std::find_if(log.plans.begin(), log.plans.end(),
                   [&](wal::FilePlan const& candidate) { return candidate.path == relative; });
  if (found != log.plans.end()) *plan = &*found;
  return Status();
}

Status LoggedFileSystem::Open(std::string const& path, OpenMode mode,
                              std::unique_ptr<RandomAccessFile>* file) {
  if (mode != OpenMode::ReadOnly) return ReadOnly("open", path);
  const wal::FilePlan* plan = nullptr;
  Status status = PlanOf(path, &plan);
  if (!status.ok()) return status;
  std::unique_ptr<RandomAccessFile> disk;
  status = disk_.Open(path, mode, &disk);
  if (plan == nullptr || (!status.ok() && (plan->writes.empty() || disk_.Exists(path)))) {
    *file = std::move(disk);
    return status;
  }
  PlannedSize size;
  status = SizeOf(disk.get(), *plan, &size);
  if (status.ok()) *file = std::make_unique<PlannedFile>(std::move(disk), *plan, size, path);
  return status;
}

Status LoggedFileSystem::Remove(std::string const& path) { return ReadOnly("remove", path); }

Status LoggedFileSystem::SyncDirectory(std::string const& path) {
  return ReadOnly("sync folder", path);
}
Status LoggedFileSystem::SyncAll(std::string const& folder) {
  return ReadOnly("sync the file system of", folder);
}

bool LoggedFileSystem::Exists(std::string const& path) {
  const wal::FilePlan* plan = nullptr;
  return disk_.Exists(path) ||
         (PlanOf(path, &plan).ok() && plan != nullptr && !plan->writes.empty());
}

Status LoggedFileSystem::ChangesOf(std::string const& path, LoggedChanges* changes) {
  *changes = LoggedChanges();
  const wal::FilePlan* plan = nullptr;
  Status status = PlanOf(path, &plan);
  if (!status.ok() || plan == nullptr) return status;
  std::unique_ptr<RandomAccessFile> disk;
  disk_.Open(path, OpenMode::ReadOnly, &disk);  // a missing file holds none of the writes
  PlannedSize size;
  status = SizeOf(disk.get(), *plan, &size);
  if (!status.ok()) return status;
  changes->unapplied = static_cast<int>(
      std::count_if(plan->writes.begin(), plan->writes.end(),
                    [&](const wal::Frame* frame) { return !DiskHolds(disk.get(), *frame); }));
  if (size.grown > size.shown) {
    changes->cutFrom = size.shown;
    changes->cutBytes = size.grown - size.shown;
  }
  return Status();
}
