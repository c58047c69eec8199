#include "RawStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

constexpr char kFileName[] = "candles.bin";
constexpr char kNewFileName[] = "candles.bin.new";
constexpr mode_t kFileMode = 0644;

void Fail(std::string const& what) {
  throw std::runtime_error("raw: " + what + ": " + std::strerror(errno));
}

void WriteAll(int fd, const void* data, std::size_t size) {
  if (write(fd, data, size) != static_cast<ssize_t>(size)) Fail("write");
}

int OpenFile(std::filesystem::path const& path, int flags) {
  int fd = open(path.c_str(), flags, kFileMode);
  if (fd < 0) Fail("open " + path.string());
  return fd;
}

}  // namespace

RawStore::RawStore(std::filesystem::path const& folder) : CandleStore("raw", folder, 1) {
  OpenEmpty();
}

RawStore::~RawStore() { Close(); }

std::filesystem::path RawStore::path() const { return workFolder() / kFileName; }

void RawStore::Open() {
  fd_ = OpenFile(path(), O_RDWR | O_CREAT | O_APPEND);
  Candle last;
  int count = Count();
  lastTime_ = count > 0 && ReadAt(count - 1, 1, &last) == 1 ? last.time : 0;
}

void RawStore::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

void RawStore::InsertRecords(const Candle* candles, int count) {
  if (count == 0) return;
  if (candles[0].time > lastTime_) {
    Append(candles, count);
  } else {
    Rewrite(count);
  }
}

void RawStore::Append(const Candle* candles, int count) {
  WriteAll(fd_, candles, std::size_t{static_cast<unsigned>(count)} * kCandleSize);
  lastTime_ = candles[count - 1].time;
}

void RawStore::Rewrite(int added) {
  int stored = Count();
  buffer_.resize(stored + added);
  if (ReadAt(0, stored, buffer_.data()) != stored) Fail("read");
  std::filesystem::path next = workFolder() / kNewFileName;
  int fd = OpenFile(next, O_WRONLY | O_CREAT | O_TRUNC);
  WriteAll(fd, buffer_.data(), buffer_.size() * kCandleSize);
  close(fd);
  std::filesystem::rename(next, path());
  Close();
  fd_ = OpenFile(path(), O_RDWR | O_APPEND);
}

int RawStore::ReadAt(int first, int count, Candle* out) {
  std::size_t bytes = std::size_t{static_cast<unsigned>(count)} * kCandleSize;
  ssize_t read = pread(fd_, out, bytes, off_t{first} * kCandleSize);
  return read < 0 ? 0 : static_cast<int>(read / kCandleSize);
}

int RawStore::ReadRange(int first, int count, Candle* out) { return ReadAt(first, count, out); }

int RawStore::ReadLast(int count, Candle* out) {
  int total = Count();
  int delivered = std::min(count, total);
  return ReadAt(total - delivered, delivered, out);
}

int RawStore::Count() {
  struct stat status;
  if (fstat(fd_, &status) != 0) Fail("fstat");
  return static_cast<int>(status.st_size / kCandleSize);
}
