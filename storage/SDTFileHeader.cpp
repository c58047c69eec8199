// Reading and writing the header of a symbol data file. The reader checks
// every length, count and offset against the file's size before using it and
// fills the owner only once the whole header has been read and found sound.
#include <algorithm>
#include <functional>
#include <QString>
#include <cstring>
#include <optional>
#include <vector>

#include "FileFormat.h"
#include "SDTFile.h"
#include "Symbol.h"
#include "WriteAheadLog.h"
#include "Period.h"

namespace {

constexpr std::uint32_t kFixedPartSize = cjd::kDescriptionsOffset;
constexpr std::uint32_t kViewCountFieldSize = 4 + 1;  // H, then v

// Sequential reader over a block of header bytes; every read is bounds-checked.
class ByteReader {
 public:
  explicit ByteReader(std::vector<unsigned char> const& bytes) : bytes_(bytes) {}
  bool ok() const { return ok_; }

  template <typename T>
  T Number() {
    T value{};
    if (!Take(sizeof(T))) return value;
    std::memcpy(&value, bytes_.data() + offset_ - sizeof(T), sizeof(T));
    return value;
  }

  // A text field: the length byte, then 255 bytes holding the string.
  std::string Text() {
    const std::uint8_t length = Number<std::uint8_t>();
    if (length > cjd::kMaxTextLength) ok_ = false;
    if (!Take(cjd::kTextBytes) || !ok_) return std::string();
    return std::string(reinterpret_cast<const char*>(bytes_.data() + offset_ - cjd::kTextBytes),
                       length);
  }

 private:
  bool Take(std::size_t n) {
    if (!ok_ || bytes_.size() - offset_ < n) return ok_ = false;
    offset_ += n;
    return true;
  }

  std::vector<unsigned char> const& bytes_;  // the block being read
  std::size_t offset_ = 0;                   // next byte
  bool ok_ = true;                           // false after any overrun or bad field
};

// Sequential writer of header bytes.
class ByteWriter {
 public:
  template <typename T>
  void Number(T value) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&value);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof(T));
  }
  void Text(QByteArray const& text) {
    const std::size_t length = std::min<std::size_t>(text.size(), cjd::kMaxTextLength);
    Number<std::uint8_t>(static_cast<std::uint8_t>(length));
    bytes_.insert(bytes_.end(), text.constData(), text.constData() + length);
    bytes_.insert(bytes_.end(), cjd::kTextBytes - length, 0);
  }
  std::vector<unsigned char> const& bytes() const { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;  // the header so far
};

// Wide properties are stored in the local 8-bit encoding and read back one
// byte per character.
QByteArray WideToLocal(const char16_t* text) { return QString::fromUtf16(text).toLocal8Bit(); }
std::u16string ByteCharacters(std::string const& text) {
  std::u16string wide;
  for (unsigned char c : text) wide.push_back(c);
  return wide;
}

}  // namespace

// What a stored header holds, once checked.
struct ParsedView {
  DATA_POINT_TYPES type;  // checked to be a known type
  std::string name;       // view name
};

struct ParsedHeader {
  std::uint16_t descriptionCount = 0;       // n
  std::uint32_t descriptionAreaOffset = 0;  // D
  std::uint32_t headerSize = 0;             // H
  std::vector<std::pair<std::string, std::string>> descriptions;
  std::vector<ParsedView> views;
  std::string name, title, provider, code;
  SYMBOL_PERIOD period{};
  float pointSize = 0;
};

namespace {

// Reads the header from a file of a known size, one checked block at a time.
// The file's first kPrefetchBytes come in one read, which holds a usual
// header whole.
class HeaderReader {
 public:
  static constexpr std::uint64_t kPrefetchBytes = 4096;

  HeaderReader(RandomAccessFile& file, std::uint64_t size) : file_(file), size_(size) {
    prefix_.resize(static_cast<std::size_t>(std::min(size, kPrefetchBytes)));
    if (!file_.ReadExactly(0, prefix_.data(), prefix_.size()).ok()) prefix_.clear();
  }

  std::optional<std::vector<unsigned char>> Block(std::uint64_t offset, std::uint64_t n) {
    if (offset > size_ || n > size_ - offset) return std::nullopt;
    if (offset + n <= prefix_.size()) {
      return std::vector<unsigned char>(prefix_.begin() + long(offset),
                                        prefix_.begin() + long(offset + n));
    }
    std::vector<unsigned char> bytes(static_cast<std::size_t>(n));
    if (!file_.ReadExactly(offset, bytes.data(), bytes.size()).ok()) return std::nullopt;
    return bytes;
  }

  std::uint64_t size() const { return size_; }

 private:
  RandomAccessFile& file_;             // the open data file
  const std::uint64_t size_;           // its size when reading began
  std::vector<unsigned char> prefix_;  // its first bytes; empty when they could not be read
};

// A data file as reads see it, its pending tail over the bytes on disk, for
// the header parser: a new file's header is pending until a checkpoint.
class LogicalFile : public RandomAccessFile {
 public:
  using Reader = std::function<Status(std::uint64_t offset, void* out, std::size_t n)>;
  LogicalFile(std::string const& path, std::int64_t size, Reader read)
      : path_(path), size_(size < 0 ? 0 : std::uint64_t(size)), read_(std::move(read)) {}

  Status ReadAt(std::uint64_t offset, void* buffer, std::size_t n, std::size_t* got) override {
    *got = offset < size_ ? std::size_t(std::min<std::uint64_t>(n, size_ - offset)) : 0;
    return *got > 0 ? read_(offset, buffer, *got) : Status();
  }
  Status WriteAt(std::uint64_t, const void*, std::size_t) override { return ReadOnly(); }
  Status Size(std::uint64_t* size) override {
    *size = size_;
    return Status();
  }
  Status Truncate(std::uint64_t) override { return ReadOnly(); }
  Status Sync() override { return ReadOnly(); }
  std::string const& path() const override { return path_; }

 private:
  Status ReadOnly() const { return Status::Error("change", path_, "a view for reading"); }

  std::string const& path_;   // the data file's
  const std::uint64_t size_;  // as reads see it
  Reader read_;               // reads as the data file's reads
};

bool ReadDescriptions(HeaderReader& reader, std::uint16_t count, ParsedHeader& header);
bool ReadViewsAndProperties(HeaderReader& reader, ParsedHeader& header);
Status ParseHeader(RandomAccessFile& file, std::string const& fileType,
                   unsigned short expectedVersion, ParsedHeader* header);

}  // namespace

namespace {

// Parses the header of an open file; the owner is not touched.
Status ParseHeader(RandomAccessFile& file, std::string const& fileType,
                   unsigned short expectedVersion, ParsedHeader* header) {
  std::uint64_t size = 0;
  Status status = file.Size(&size);
  if (!status.ok()) return status;
  HeaderReader reader(file, size);
  auto fixed = reader.Block(0, kFixedPartSize);
  if (!fixed)
    return Status::Error("read the header of", file.path(), "the file is shorter than a header");
  ByteReader bytes(*fixed);
  const std::string type = bytes.Text();
  const auto version = bytes.Number<std::uint16_t>();
  header->descriptionAreaOffset = bytes.Number<std::uint32_t>();
  const auto descriptionCount = bytes.Number<std::uint16_t>();
  if (!bytes.ok() || type != fileType || version != expectedVersion) {
    return Status::Error("read the header of", file.path(),
                         "not a data file of this type and version");
  }
  header->descriptionCount = descriptionCount;
  if (!ReadDescriptions(reader, descriptionCount, *header) ||
      !ReadViewsAndProperties(reader, *header)) {
    return Status::Error("read the header of", file.path(), "the header is damaged");
  }
  return Status();
}

}  // namespace

// Without a pending tail the file is read as it is.
Status CSDTFile::ParseStoredHeader(ParsedHeader* header) {
  if (Tail() == nullptr) return ParseHeader(*file_, fileType_, version_, header);
  LogicalFile view(path_, FileSize(), [this](std::uint64_t offset, void* out, std::size_t n) {
    return ReadAt(offset, out, n);
  });
  return ParseHeader(view, fileType_, version_, header);
}

int CSDTFile::ReadHeaderData(Status* status) {
  Status outcome = Open(true);
  ParsedHeader header;
  if (outcome.ok()) outcome = ParseStoredHeader(&header);
  if (!outcome.ok()) {
    if (status != nullptr) *status = outcome;
    Close();
    return 1;
  }
  owner_->setDescriptionCount(header.descriptionCount);
  for (auto const& [name, value] : header.descriptions) {
    auto description = std::make_unique<STRING_DESCRIPTION>();
    std::strncpy(description->name, name.c_str(), sizeof(description->name) - 1);
    std::strncpy(description->value, value.c_str(), sizeof(description->value) - 1);
    owner_->descriptions().push_back(std::move(description));
  }
  for (ParsedView& view : header.views) owner_->InsertDataPointView(view.type, view.name.data());
  owner_->setName(ByteCharacters(header.name).c_str());
  owner_->setTitle(ByteCharacters(header.title).c_str());
  owner_->setProviderName(ByteCharacters(header.provider).c_str());
  owner_->setCode(header.code.c_str());
  header.period.extra = owner_->period().extra;
  owner_->setPeriod(header.period);
  owner_->setPointSize(header.pointSize);
  descriptionAreaOffset_ = header.descriptionAreaOffset;
  headerSize_ = header.headerSize;
  Close();
  return 0;
}

namespace {

bool ReadDescriptions(HeaderReader& reader, std::uint16_t count, ParsedHeader& header) {
  auto block = reader.Block(cjd::kDescriptionsOffset, std::uint64_t{count} * cjd::kDescriptionSize);
  if (!block) return false;
  ByteReader bytes(*block);
  for (std::uint16_t i = 0; i < count; ++i) {
    std::string name = bytes.Text();
    std::string value = bytes.Text();
    header.descriptions.emplace_back(std::move(name), std::move(value));
  }
  return bytes.ok();
}

bool ReadViewsAndProperties(HeaderReader& reader, ParsedHeader& header) {
  const std::uint64_t viewArea =
      std::uint64_t{header.descriptionAreaOffset} + cjd::kHeaderSizeFieldBase;
  auto counts = reader.Block(viewArea, kViewCountFieldSize);
  if (!counts) return false;
  ByteReader countBytes(*counts);
  header.headerSize = countBytes.Number<std::uint32_t>();
  const auto viewCount = countBytes.Number<std::uint8_t>();
  // H must cover the views and properties, and the header it describes must
  // lie within the file (only the reserved word may be missing).
  if (header.headerSize < cjd::HeaderSize(viewCount) ||
      viewArea + header.headerSize > reader.size()) {
    return false;
  }
  auto block = reader.Block(viewArea + kViewCountFieldSize,
                            std::uint64_t{viewCount} * cjd::kViewSize + cjd::kPropertiesSize);
  if (!block) return false;
  ByteReader bytes(*block);
  for (std::uint8_t i = 0; i < viewCount; ++i) {
    const auto type = bytes.Number<std::uint8_t>();
    std::string name = bytes.Text();
    if (type >= cjd::kMaxViewTypes) return false;
    header.views.push_back({static_cast<DATA_POINT_TYPES>(type), std::move(name)});
  }
  header.name = bytes.Text();
  header.title = bytes.Text();
  header.period.kind = bytes.Number<char>();
  header.period.length = bytes.Number<std::int32_t>();
  header.period.length = period::LengthOf(header.period.kind, header.period.length);
  header.provider = bytes.Text();
  header.code = bytes.Text();
  header.pointSize = bytes.Number<float>();
  return bytes.ok();
}

}  // namespace

// The header bytes of the owner; sets D and H to match them.
std::vector<unsigned char> CSDTFile::EncodeHeader() {
  const auto& descriptions = owner_->descriptions();
  const auto& views = owner_->views();
  const auto descriptionCount = static_cast<std::uint16_t>(descriptions.size());
  ByteWriter out;
  out.Text(QByteArray(fileType_.c_str()));
  out.Number<std::uint16_t>(version_);
  descriptionAreaOffset_ = cjd::DescriptionAreaOffset(descriptionCount);
  out.Number<std::uint32_t>(descriptionAreaOffset_);
  out.Number<std::uint16_t>(descriptionCount);
  for (auto const& description : descriptions) {
    out.Text(QByteArray(description->name, static_cast<qsizetype>(strnlen(
                                               description->name, sizeof(description->name)))));
    out.Text(QByteArray(description->value, static_cast<qsizetype>(strnlen(
                                                description->value, sizeof(description->value)))));
  }
  headerSize_ = owner_->GetHeaderSize();
  out.Number<std::uint32_t>(headerSize_);
  out.Number<std::uint8_t>(static_cast<std::uint8_t>(views.size()));
  for (CDATA_POINT_VIEW const& view : views) {
    out.Number<std::uint8_t>(static_cast<std::uint8_t>(view.type));
    out.Text(QByteArray(view.name, static_cast<qsizetype>(strnlen(view.name, sizeof(view.name)))));
  }
  out.Text(WideToLocal(owner_->name()));
  out.Text(WideToLocal(owner_->title()));
  out.Number<char>(owner_->period().kind);
  out.Number<std::int32_t>(owner_->period().length);
  out.Text(WideToLocal(owner_->providerName()));
  out.Text(
      QByteArray(owner_->code(), static_cast<qsizetype>(strnlen(owner_->code(), kSymbolTextSize))));
  out.Number<float>(owner_->pointSize());
  owner_->setDescriptionCount(descriptionCount);
  return out.bytes();
}

// A file that holds records is never written over unless its header loads:
// a damaged one is left for the cjd tool. An empty file holds nothing to
// lose: it is new. Sizes and bytes are those reads see, a pending header
// included.
Status CSDTFile::WriteHeader() {
  const std::int64_t size = FileSize();
  if (size < 0) return Error("write the header of", "its size cannot be read");
  const std::vector<unsigned char> bytes = EncodeHeader();
  if (size == 0) return WriteNewHeader(bytes);
  std::vector<unsigned char> held(bytes.size());
  if (size >= std::int64_t(bytes.size()) && ReadAt(0, held.data(), held.size()).ok() &&
      held == bytes)
    return Status();
  ParsedHeader stored;
  Status status = ParseStoredHeader(&stored);
  if (!status.ok())
    return Error("write the header of", status.reason() + "; the file is left as it is");
  if (log_ == nullptr) return file_->WriteAt(0, bytes.data(), bytes.size());
  return log_->WriteHeader(logKey_, *file_, bytes.data(), bytes.size());
}

// Read-only, nothing is written: the record area is where the stored header
// puts it. An empty file is one whose writer has not put its header in yet.
Status CSDTFile::TakeStoredRecordArea() {
  if (FileSize() == 0) {
    EncodeHeader();
    return Status();
  }
  ParsedHeader stored;
  Status status = ParseStoredHeader(&stored);
  if (!status.ok()) return status;
  descriptionAreaOffset_ = stored.descriptionAreaOffset;
  headerSize_ = stored.headerSize;
  return Status();
}

int CSDTFile::WriteHeaderData(Status* status) {
  Status outcome = Open(true);
  if (outcome.ok()) outcome = readOnly_ ? TakeStoredRecordArea() : WriteHeader();
  Close();
  if (status != nullptr) *status = outcome;
  return outcome.ok() ? 0 : 1;
}
