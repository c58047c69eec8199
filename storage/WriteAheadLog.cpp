#include "WriteAheadLog.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "Checksum.h"
#include "LogRecovery.h"

namespace {

// A log this long is cut back at a checkpoint, so one large change does not
// keep its space for good.
constexpr std::uint64_t kLogKeepBytes = 16 * 1024 * 1024;

std::uint64_t NewSalt(std::uint64_t previous) {
  std::random_device device;
  const std::uint64_t fresh = (std::uint64_t{device()} << 32) ^ device();
  const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  return Checksum64(&now, sizeof(now), fresh ^ previous);
}

// The parts of a path between slashes, "." dropped; false when one is "..".
bool SplitPath(std::string const& path, std::vector<std::string>* parts) {
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    std::string part = path.substr(start, slash - start);
    start = slash + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") return false;
    parts->push_back(std::move(part));
  }
  return true;
}

}  // namespace

WriteAheadLog::WriteAheadLog(FileSystem& fileSystem, std::string folder,
                             DurabilitySettings settings)
    : fileSystem_(fileSystem), folder_(std::move(folder)), settings_(settings) {}

WriteAheadLog::~WriteAheadLog() { Checkpoint(); }

Status WriteAheadLog::Open(FileSystem& fileSystem, std::string const& folder,
                           DurabilitySettings settings, std::unique_ptr<WriteAheadLog>* log,
                           RecoveryReport* report) {
  std::unique_ptr<WriteAheadLog> opened(new WriteAheadLog(fileSystem, folder, settings));
  Status status = fileSystem.Open(wal::JoinPath(folder, wal::kLogFileName), OpenMode::OpenOrCreate,
                                  &opened->log_);
  if (status.ok()) status = opened->Recover(report);
  if (status.ok()) *log = std::move(opened);
  return status;
}

std::string WriteAheadLog::RelativePath(std::string const& path) const {
  std::vector<std::string> folderParts, pathParts;
  if (!SplitPath(folder_, &folderParts) || !SplitPath(path, &pathParts)) return {};
  const bool sameRoot =
      (!folder_.empty() && folder_.front() == '/') == (!path.empty() && path.front() == '/');
  if (!sameRoot || pathParts.size() <= folderParts.size() ||
      !std::equal(folderParts.begin(), folderParts.end(), pathParts.begin())) {
    return {};
  }
  std::string relative;
  for (std::size_t i = folderParts.size(); i < pathParts.size(); ++i) {
    if (!relative.empty()) relative += '/';
    relative += pathParts[i];
  }
  return relative;
}

// Carries out the sound frames of the log left by the last writer, makes
// the result durable and starts a new log.
Status WriteAheadLog::Recover(RecoveryReport* report) {
  wal::LogContents contents;
  Status status = wal::ReadLog(*log_, &contents);
  if (!status.ok()) return status;
  std::vector<wal::FilePlan> plans;
  status = wal::PlanRecovery(fileSystem_, folder_, contents, &plans);
  if (status.ok()) status = VouchRecoveredAppends(contents, plans);
  RecoveryReport found;
  for (wal::FilePlan const& plan : plans) {
    if (status.ok()) status = ApplyPlan(plan, found);
  }
  if (report != nullptr) *report = found;
  if (!status.ok()) return status;
  status = StartNewLog();
  if (status.ok() && Syncs()) status = SyncLog();
  return status;
}

// Appends found sound are made durable and vouched for at the end of the old
// log before any write of the plans changes their bytes.
Status WriteAheadLog::VouchRecoveredAppends(wal::LogContents const& contents,
                                            std::vector<wal::FilePlan> const& plans) {
  if (!contents.salt) return Status();
  salt_ = *contents.salt;
  previousChecksum_ = contents.lastChecksum;
  writeOffset_ = contents.end;
  for (wal::FilePlan const& plan : plans) {
    if (!plan.appendedTo || plan.appendsKept == 0) continue;
    FileState& state = files_[plan.path];
    state.unvouched = true;
    state.appendedEnd = *plan.appendedTo;
  }
  Status status = VouchDirectAppends();
  files_.clear();
  return status;
}

Status WriteAheadLog::ApplyPlan(wal::FilePlan const& plan, RecoveryReport& report) {
  const std::string path = wal::JoinPath(folder_, plan.path);
  const bool created = !fileSystem_.Exists(path);
  if (created && plan.writes.empty()) return Status();
  std::unique_ptr<RandomAccessFile> file;
  Status status = fileSystem_.Open(path, OpenMode::OpenOrCreate, &file);
  for (const wal::Frame* frame : plan.writes) {
    if (status.ok())
      status = file->WriteAt(frame->offset, frame->payload.data(), frame->payload.size());
  }
  std::uint64_t size = 0;
  if (status.ok()) status = file->Size(&size);
  const bool cut = status.ok() && plan.cutTo && size > *plan.cutTo;
  if (cut) status = file->Truncate(*plan.cutTo);
  if (status.ok() && Syncs()) status = file->Sync();
  if (status.ok() && created && Syncs()) status = fileSystem_.SyncDirectory(DirectoryOf(path));
  report.framesReplayed += static_cast<int>(plan.writes.size()) + plan.appendsKept;
  report.filesCut += cut ? 1 : 0;
  report.framesVoided += plan.framesVoided;
  report.filesTouched.push_back(plan.path);
  return status;
}

// A header with a new salt: the frames behind it no longer count.
Status WriteAheadLog::StartNewLog() {
  salt_ = NewSalt(salt_);
  const auto header = wal::EncodeHeader(salt_);
  Status status = log_->WriteAt(0, header.data(), header.size());
  std::uint64_t size = 0;
  if (status.ok()) status = log_->Size(&size);
  if (status.ok() && size > kLogKeepBytes) status = log_->Truncate(wal::kHeaderBytes);
  if (!status.ok()) return status;
  previousChecksum_ = salt_;
  writeOffset_ = wal::kHeaderBytes;
  logUnsynced_ = true;
  return Status();
}

Status WriteAheadLog::AppendFrame(wal::Frame const& frame, const void* payload,
                                  std::size_t payloadSize) {
  frameBuffer_.clear();
  const std::uint64_t checksum =
      wal::EncodeFrame(frame, payload, payloadSize, previousChecksum_, frameBuffer_);
  Status status = log_->WriteAt(writeOffset_, frameBuffer_.data(), frameBuffer_.size());
  if (!status.ok()) return status;
  writeOffset_ += frameBuffer_.size();
  previousChecksum_ = checksum;
  logUnsynced_ = true;
  return Status();
}

Status WriteAheadLog::AppendWriteFrame(std::string const& key, std::uint64_t offset,
                                       const void* data, std::size_t n) {
  wal::Frame frame;
  frame.kind = wal::FrameKind::Write;
  frame.path = key;
  frame.offset = offset;
  frame.length = n;
  return AppendFrame(frame, data, n);
}

Status WriteAheadLog::SyncFile(std::string const& key) {
  std::unique_ptr<RandomAccessFile> file;
  Status status = fileSystem_.Open(wal::JoinPath(folder_, key), OpenMode::ReadOnly, &file);
  return status.ok() ? file->Sync() : status;
}

Status WriteAheadLog::SyncLog() {
  if (!logUnsynced_) return Status();
  Status status = log_->Sync();
  if (status.ok()) logUnsynced_ = false;
  return status;
}

void WriteAheadLog::NoteChange(FileState& state) {
  ++state.changes;
  state.needsSync = true;
  if (!unapplied_) firstUnapplied_ = std::chrono::steady_clock::now();
  unapplied_ = true;
}

Status WriteAheadLog::Write(std::string const& key, RandomAccessFile& file, std::uint64_t offset,
                            const void* data, std::size_t n) {
  if (key.empty())
    return Status::Error("log a write to", file.path(), "the file lies outside the data folder");
  FileState& state = files_[key];
  std::uint64_t diskSize = 0;
  Status status;
  if (!state.tail) status = ProbeWritable(file, offset, &diskSize);
  if (state.tail && offset > state.tail->end()) status = file.Size(&diskSize);
  if (!status.ok()) return status;
  // Recovery takes a frame that would leave a hole for one the writer never
  // made: a write past the file's end brings the zeros before it.
  const std::uint64_t end = std::max(diskSize, state.tail ? state.tail->end() : 0);
  std::vector<unsigned char> padded;
  if (offset > end) {
    padded.resize(static_cast<std::size_t>(offset - end) + n);
    std::memcpy(padded.data() + (offset - end), data, n);
    offset = end;
    data = padded.data();
    n = padded.size();
  }
  status = AppendWriteFrame(key, offset, data, n);
  if (!status.ok()) return status;
  if (!state.tail) {
    state.tail = std::make_unique<PendingTail>();
    state.tail->offset = offset;
    state.tail->diskSize = diskSize;
  }
  MergeIntoTail(state, file, offset, data, n);
  NoteChange(state);
  if (pendingBytes_ > kMaxPendingBytes || writeOffset_ > kMaxLogBytes) return Checkpoint();
  return Status();
}

// The data file waits for the next checkpoint; a file that cannot be written
// at all (no permission, immutable, a read-only mount) is found out now, by
// writing back one byte it holds, so that the insert is refused at once.
Status WriteAheadLog::ProbeWritable(RandomAccessFile& file, std::uint64_t offset,
                                    std::uint64_t* size) {
  Status status = file.Size(size);
  if (!status.ok() || *size == 0) return status;
  const std::uint64_t at = std::min(offset, *size - 1);
  unsigned char byte = 0;
  status = file.ReadExactly(at, &byte, 1);
  if (status.ok()) status = file.WriteAt(at, &byte, 1);
  return status;
}

// The tail runs from the lowest pending offset to the end of the highest
// pending write. A write apart from it takes the file's bytes between them.
void WriteAheadLog::MergeIntoTail(FileState& state, RandomAccessFile& file, std::uint64_t offset,
                                  const void* data, std::size_t n) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  PendingTail& tail = *state.tail;
  pendingBytes_ -= tail.bytes.size();
  if (offset >= tail.offset) {
    const std::size_t at = static_cast<std::size_t>(offset - tail.offset);
    const std::size_t held = tail.bytes.size();
    if (held < at + n) tail.bytes.resize(at + n);
    if (held < at) {
      std::size_t got = 0;
      file.ReadAt(tail.offset + held, tail.bytes.data() + held, at - held,
                  &got);  // a hole reads as zeros
    }
    std::memcpy(tail.bytes.data() + at, bytes, n);
  } else {
    std::vector<unsigned char> merged(bytes, bytes + n);
    const std::uint64_t end = offset + n;
    if (end < tail.offset) {
      merged.resize(static_cast<std::size_t>(tail.offset - offset));
      std::size_t got = 0;
      file.ReadAt(end, merged.data() + n, merged.size() - n, &got);  // a hole reads as zeros
    }
    const std::uint64_t keepFrom = std::max(end, tail.offset);
    if (keepFrom < tail.end()) {
      merged.insert(merged.end(),
                    tail.bytes.begin() + static_cast<std::ptrdiff_t>(keepFrom - tail.offset),
                    tail.bytes.end());
    }
    tail.offset = offset;
    tail.bytes = std::move(merged);
  }
  pendingBytes_ += tail.bytes.size();
}

Status WriteAheadLog::Append(std::string const& key, RandomAccessFile& file, std::uint64_t offset,
                             const void* data, std::size_t n) {
  if (key.empty())
    return Status::Error("log an append to", file.path(), "the file lies outside the data folder");
  FileState& state = files_[key];
  if (n < kDirectAppendBytes || state.tail) return Write(key, file, offset, data, n);
  return AppendDirect(state, key, file, offset, data, n);
}

Status WriteAheadLog::AppendDirect(FileState& state, std::string const& key, RandomAccessFile& file,
                                   std::uint64_t offset, const void* data, std::size_t n) {
  wal::Frame frame;
  frame.path = key;
  frame.offset = offset;
  Status status;
  if (!state.intentLogged) {
    frame.kind = wal::FrameKind::AppendIntent;
    status = AppendFrame(frame, nullptr, 0);
    if (status.ok() && Syncs()) status = SyncLog();
    if (!status.ok()) return status;
    state.intentLogged = true;
  }
  status = file.WriteAt(offset, data, n);
  if (status.ok()) {
    frame.kind = wal::FrameKind::AppendDone;
    frame.length = n;
    frame.extentChecksum = wal::ExtentChecksum(data, n);
    status = AppendFrame(frame, nullptr, 0);
  }
  if (!status.ok()) {
    file.Truncate(offset);  // what the failed append left is no record
    return status;
  }
  state.unvouched = true;
  state.appendedEnd = offset + n;
  NoteChange(state);
  return Status();
}

// The header's frame is durable before the header is written over the
// stored one, so a torn header is repaired from it.
Status WriteAheadLog::WriteHeader(std::string const& key, RandomAccessFile& file, const void* data,
                                  std::size_t n) {
  if (key.empty())
    return Status::Error("log a header", folder_, "the file lies outside the data folder");
  Status status = AppendWriteFrame(key, 0, data, n);
  if (status.ok() && Syncs()) status = SyncLog();
  if (status.ok()) status = file.WriteAt(0, data, n);
  if (status.ok()) NoteChange(files_[key]);
  return status;
}

// The folder is noted first: a checkpoint that Write may run syncs it.
Status WriteAheadLog::WriteNewFile(std::string const& key, RandomAccessFile& file, const void* data,
                                   std::size_t n) {
  newFolders_.insert(DirectoryOf(file.path()));
  return Write(key, file, 0, data, n);
}

// Folders that gained a file are synced first: an intent may vouch for an
// append to a new file only once the file is sure to exist.
Status WriteAheadLog::Commit() {
  if (settings_.level < DurabilitySettings::kEveryInsert) return Status();
  Status status = SyncNewFolders();
  if (status.ok()) status = VouchDirectAppends();
  return status.ok() ? SyncLog() : status;
}

Status WriteAheadLog::SyncNewFolders() {
  for (std::string const& folder : newFolders_) {
    Status status = fileSystem_.SyncDirectory(folder);
    if (!status.ok()) return status;
  }
  newFolders_.clear();
  return Status();
}

// Syncs the files that had direct appends and logs an intent for each up to
// its last append, so those appends stand whatever later writes do to their
// bytes; then syncs the log.
Status WriteAheadLog::VouchDirectAppends() {
  bool vouched = false;
  for (auto& [key, state] : files_) {
    if (!state.unvouched) continue;
    Status status = Syncs() ? SyncFile(key) : Status();
    if (status.ok()) status = LogIntent(key, state);
    if (!status.ok()) return status;
    vouched = true;
  }
  return vouched && Syncs() ? SyncLog() : Status();
}

// A file whose tail cannot be written keeps it (logged again in the new log)
// while the other files go on; a file cut below its tail behind the module's
// back loses the tail, which no longer fits it. Either is reported.
Status WriteAheadLog::Checkpoint(SyncRunner const& runner) {
  if (!unapplied_) return Status();
  Status status = Syncs() ? SyncBeforeApplying(runner) : VouchDirectAppends();
  if (!status.ok()) return status;
  Status firstFailure;
  std::vector<std::string> kept;
  for (auto& [key, state] : files_) {
    if (!state.tail) continue;
    Status applied = ApplyTail(key, state);
    if (applied.ok()) continue;
    if (firstFailure.ok()) firstFailure = applied;
    if (state.tail) kept.push_back(key);
  }
  status = SyncWritten(runner);
  if (status.ok()) status = StartNewLog();
  if (!status.ok()) return status;
  pendingBytes_ = 0;
  unapplied_ = false;
  for (auto& [key, state] : files_) {
    if (std::find(kept.begin(), kept.end(), key) == kept.end()) state.tail.reset();
    state.intentLogged = false;
    state.needsSync = false;
  }
  newFolders_.clear();
  for (std::string const& key : kept) {
    status = RelogTail(key, files_[key]);
    if (!status.ok() && firstFailure.ok()) firstFailure = status;
  }
  status = Syncs() ? RunSyncs(runner, [this] { return SyncLog(); }) : Status();
  return firstFailure.ok() ? status : firstFailure;
}

Status WriteAheadLog::RunSyncs(SyncRunner const& runner, std::function<Status()> const& syncs) {
  return runner ? runner(syncs) : syncs();
}

// Step 1: the folders that gained a file and the files with direct appends
// are synced (outside the caller's lock), then an intent vouches for each
// such file, then the log is synced.
Status WriteAheadLog::SyncBeforeApplying(SyncRunner const& runner) {
  const std::vector<std::string> folders(newFolders_.begin(), newFolders_.end());
  std::vector<std::string> appended;
  for (auto const& [key, state] : files_) {
    if (state.unvouched) appended.push_back(key);
  }
  Status status = RunSyncs(runner, [&] {
    Status synced;
    for (std::string const& folder : folders) {
      if (synced.ok()) synced = fileSystem_.SyncDirectory(folder);
    }
    for (std::string const& key : appended) {
      if (synced.ok()) synced = SyncFile(key);
    }
    return synced;
  });
  if (!status.ok()) return status;
  for (std::string const& folder : folders) newFolders_.erase(folder);
  for (std::string const& key : appended) {
    FileState& state = files_[key];
    status = LogIntent(key, state);
    if (!status.ok()) return status;
  }
  return RunSyncs(runner, [this] { return SyncLog(); });
}

Status WriteAheadLog::LogIntent(std::string const& key, FileState& state) {
  wal::Frame frame;
  frame.kind = wal::FrameKind::AppendIntent;
  frame.path = key;
  frame.offset = state.appendedEnd;
  Status status = AppendFrame(frame, nullptr, 0);
  if (status.ok()) state.unvouched = false;
  return status;
}

Status WriteAheadLog::ApplyTail(std::string const& key, FileState& state) {
  std::unique_ptr<RandomAccessFile> file;
  Status status = fileSystem_.Open(wal::JoinPath(folder_, key), OpenMode::ReadWrite, &file);
  std::uint64_t size = 0;
  if (status.ok()) status = file->Size(&size);
  if (status.ok() && state.tail->CutBelow(size)) {
    state.tail.reset();
    return Status::Error(
        "write pending records into", file->path(),
        "the file was cut short behind the module's back; the pending records are dropped");
  }
  if (status.ok())
    status = file->WriteAt(state.tail->offset, state.tail->bytes.data(), state.tail->bytes.size());
  return status;
}

// A tail that stays pending goes into the new log whole.
Status WriteAheadLog::RelogTail(std::string const& key, FileState& state) {
  Status status =
      AppendWriteFrame(key, state.tail->offset, state.tail->bytes.data(), state.tail->bytes.size());
  pendingBytes_ += state.tail->bytes.size();
  NoteChange(state);
  return status;
}

// Step 3, outside the caller's lock: many files (a start that made many
// symbols) cost one sync of their file system instead of one each.
Status WriteAheadLog::SyncWritten(SyncRunner const& runner) {
  if (!Syncs()) return Status();
  std::vector<std::string> written;
  for (auto const& [key, state] : files_) {
    if (state.needsSync) written.push_back(key);
  }
  const std::vector<std::string> folders(newFolders_.begin(), newFolders_.end());
  const bool wholeFileSystem = written.size() > settings_.syncEachFileAtMost;
  return RunSyncs(runner, [&] {
    if (wholeFileSystem) return fileSystem_.SyncAll(folder_);
    Status status;
    for (std::string const& key : written) {
      if (status.ok()) status = SyncFile(key);
    }
    for (std::string const& folder : folders) {
      if (status.ok()) status = fileSystem_.SyncDirectory(folder);
    }
    return status;
  });
}

Status WriteAheadLog::CheckpointIfDue(SyncRunner const& runner) {
  if (!unapplied_ || UntilDue() > std::chrono::steady_clock::duration::zero()) return Status();
  return Checkpoint(runner);
}

std::chrono::steady_clock::duration WriteAheadLog::UntilDue() const {
  if (!unapplied_) return std::chrono::steady_clock::duration::max();
  const auto due = firstUnapplied_ + std::chrono::milliseconds(settings_.syncIntervalMs);
  return std::max(due - std::chrono::steady_clock::now(),
                  std::chrono::steady_clock::duration::zero());
}
