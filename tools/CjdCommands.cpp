#include "CjdCommands.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <algorithm>
#include <cstring>
#include <vector>

#include "CjdFile.h"
#include "LogView.h"
#include "FileFormat.h"
#include "FolderLock.h"
#include "RecordCsv.h"
#include "WriteAheadLog.h"

namespace {

using Row = std::vector<std::string>;

constexpr std::size_t kMaxListedOrderProblems = 50;  // check lists no more out-of-order records
constexpr char kColumnGap[] = "  ";
constexpr char kNoTime[] = "-";
constexpr char kDataFilePattern[] = "*.cjd";

// Prints rows with every column as wide as its widest cell. The last cell of
// a row is not padded and does not widen its column, so a row may end in a
// long message.
void PrintTable(std::ostream& out, std::vector<Row> const& rows) {
  std::vector<std::size_t> widths;
  for (Row const& row : rows) {
    if (widths.size() + 1 < row.size()) widths.resize(row.size() - 1);
    for (std::size_t i = 0; i + 1 < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (Row const& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      out << row[i] << std::string(widths[i] - row[i].size(), ' ') << kColumnGap;
    }
    if (!row.empty()) out << row.back();
    out << '\n';
  }
}

int Fail(std::ostream& err, std::string const& path, std::string const& why) {
  err << "cjd: " << path << ": " << why << '\n';
  return kExitFailure;
}

// "1 record", "2 records".
std::string Counted(std::size_t count, std::string const& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

// A file loaded read-only as readers of the module see it: with the changes
// its data folder's log still holds.
struct ShownFile {
  explicit ShownFile(std::string const& path) : loaded(LoadFile(&owner, path)) {}
  LoggedFileSystem fileSystem;   // the disk with the log's changes
  ToolOwner owner{&fileSystem};  // read-only, through fileSystem
  LoadedFile loaded;             // the symbol, or why it did not load
};

void PrintHeader(std::ostream& out, CSymbol& symbol) {
  CSDTFile& file = *symbol.file();
  out << "type: " << cjd::kFileType << '\n'
      << "version: " << cjd::kVersion << '\n'
      << "description area offset (D): " << file.descriptionAreaOffset() << '\n'
      << "descriptions: " << symbol.descriptionCount() << '\n';
  for (std::size_t i = 0; i < symbol.descriptions().size(); ++i) {
    STRING_DESCRIPTION const& description = *symbol.descriptions()[i];
    out << "  description " << i << ": " << description.name << " = " << description.value << '\n';
  }
  out << "header size (H): " << file.headerSize() << '\n'
      << "views: " << symbol.views().size() << '\n';
  for (std::size_t i = 0; i < symbol.views().size(); ++i) {
    CDATA_POINT_VIEW const& view = symbol.views()[i];
    out << "  view " << i << ": " << ViewTypeName(view.type) << ' ' << view.name << '\n';
  }
  const SYMBOL_PERIOD period = symbol.period();
  out << "name: " << Utf8(symbol.name()) << '\n'
      << "title: " << Utf8(symbol.title()) << '\n'
      << "period: " << PeriodText(period) << " (kind " << KindText(period.kind) << ", length "
      << period.length << ")\n"
      << "provider: " << Utf8(symbol.providerName()) << '\n'
      << "code: " << symbol.code() << '\n'
      << "point size: " << RealText(symbol.pointSize()) << '\n';
}

void PrintExtent(std::ostream& out, std::string const& path, RecordExtent const& extent) {
  const std::int64_t diskSize = DiskSize(path);
  out << "record size: " << extent.recordSize << '\n'
      << "first record offset: " << extent.firstOffset << '\n'
      << "file size: " << diskSize;
  if (diskSize != extent.visibleSize)
    out << " on disk, " << extent.visibleSize << " as readers see it";
  out << '\n'
      << "whole records: " << extent.records << '\n'
      << "partial record bytes: " << extent.partialBytes << '\n';
}

void PrintLoggedChanges(std::ostream& out, LoggedChanges const& changes) {
  if (changes.unapplied > 0) {
    out << "log: " << Counted(changes.unapplied, "change") << " not yet in the file "
        << (changes.unapplied == 1 ? "is" : "are") << " shown\n";
  }
  if (changes.cutBytes > 0) {
    out << "log: the " << changes.cutBytes << " bytes after byte " << changes.cutFrom
        << " are an unfinished append; recovery cuts them\n";
  }
  if (changes.unapplied == 0 && changes.cutBytes == 0) out << "log: none pending\n";
}

// The request that selects what dump prints; count is the buffer's capacity.
GET_SYMBOL_DATA_REQUEST DumpRequest(CSymbol& symbol, DumpSelection const& selection, int records) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.mode = kGetOldest;
  request.count = records;
  if (selection.kind == DumpSelection::Kind::kFirst)
    request.count = std::min(selection.count, records);
  if (selection.kind == DumpSelection::Kind::kLast) {
    request.mode = kGetNewest;
    request.count = std::min(selection.count, records);
  }
  if (selection.kind == DumpSelection::Kind::kRange) {
    request.mode = kGetTimeRange;
    request.firstTime = selection.from;
    request.lastTime = selection.to;
    symbol.GetDataCount(&request);
  }
  return request;
}

bool AllFloat(CSymbol const& symbol) {
  return std::all_of(symbol.views().begin(), symbol.views().end(),
                     [](CDATA_POINT_VIEW const& view) { return view.type == DATA_POINT_FLOAT; });
}

void PrintRecordTable(std::ostream& out, CSymbol const& symbol, const unsigned char* records,
                      int count) {
  std::vector<Row> rows{{"time", "epoch"}};
  for (CDATA_POINT_VIEW const& view : symbol.views()) rows[0].push_back(view.name);
  for (int i = 0; i < count; ++i) {
    const unsigned char* record = records + std::size_t(i) * symbol.GetDataPointSize();
    std::int32_t time;
    std::memcpy(&time, record, sizeof time);
    Row row{FormatTime(time), std::to_string(time)};
    std::size_t offset = cjd::kTimeSize;
    for (CDATA_POINT_VIEW const& view : symbol.views()) {
      row.push_back(ValueText(view.type, record + offset));
      offset += CSymbol::GetViewSize(view.type);
    }
    rows.push_back(std::move(row));
  }
  PrintTable(out, rows);
}

std::string OrderProblemText(OrderProblem const& problem) {
  const std::string at =
      "record " + std::to_string(problem.record) + ": time " + std::to_string(problem.time);
  if (problem.time == problem.previous)
    return at + " repeats the time of record " + std::to_string(problem.record - 1);
  return at + " is not after " + std::to_string(problem.previous);
}

// Lists what keeps the file from being sound; the number of problems.
std::size_t ListProblems(std::ostream& out, RecordExtent const& extent, int zeroTail,
                         RecordScan const& scan) {
  std::size_t problems = 0;
  if (extent.partialBytes > 0) {
    out << extent.partialBytes << " bytes of a partial record at the end\n";
    ++problems;
  }
  if (zeroTail > 0) {
    out << Counted(zeroTail, "zero-time record") << " at the end\n";
    ++problems;
  }
  if (!scan.readError.empty()) {
    out << "records cannot be read: " << scan.readError << '\n';
    ++problems;
  }
  for (std::size_t i = 0; i < scan.problems.size() && i < kMaxListedOrderProblems; ++i) {
    out << OrderProblemText(scan.problems[i]) << '\n';
  }
  if (scan.problems.size() > kMaxListedOrderProblems) {
    out << "... and " << scan.problems.size() - kMaxListedOrderProblems
        << " more records out of order\n";
  }
  return problems + scan.problems.size();
}

// One line of the listing; *loaded tells whether the file loaded.
Row ListRow(QFileInfo const& info, std::string const& relative, FileSystem& fileSystem,
            bool* loaded) {
  const std::string provider = info.dir().dirName().toStdString();
  ToolOwner owner(&fileSystem);
  LoadedFile file = LoadFile(&owner, info.filePath().toStdString());
  *loaded = file.symbol != nullptr;
  if (!file.symbol) return {provider, relative, "does not load: " + file.error};
  CSymbol& symbol = *file.symbol;
  const RecordExtent extent = ExtentOf(symbol);
  const auto first = extent.records > 0 ? RecordTimeAt(symbol, 0) : std::nullopt;
  const auto last = extent.records > 0 ? RecordTimeAt(symbol, extent.records - 1) : std::nullopt;
  return {provider,
          Utf8(symbol.name()),
          PeriodText(symbol.period()),
          symbol.code(),
          std::to_string(extent.records),
          first ? FormatTime(*first) : kNoTime,
          last ? FormatTime(*last) : kNoTime};
}

// Cuts the partial record and the zero-time tail of a file found sound otherwise.
int CutRecords(std::string const& path, RecordExtent const& extent, int zeroTail, std::ostream& out,
               std::ostream& err) {
  const int kept = extent.records - zeroTail;
  const Status status = CutFile(path, extent.firstOffset + std::uint64_t(kept) * extent.recordSize);
  if (!status.ok()) return Fail(err, path, "cannot cut the file: " + status.reason());
  if (extent.partialBytes > 0)
    out << "cut " << extent.partialBytes << " bytes of a partial record\n";
  if (zeroTail > 0) out << "removed " << Counted(zeroTail, "zero-time record") << " at the end\n";
  out << kept << " whole records remain\n";
  return kExitOk;
}

// Checks the file as it is on disk and cuts what repair may cut; `recovered`:
// the log changed files before.
int RepairRecords(std::string const& path, bool recovered, std::ostream& out, std::ostream& err) {
  RecordExtent extent;
  int zeroTail = 0;
  {
    ToolOwner owner;
    LoadedFile loaded = LoadFile(&owner, path);
    if (!loaded.symbol)
      return Fail(err, path, "cannot repair: header does not load: " + loaded.error);
    extent = ExtentOf(*loaded.symbol);
    zeroTail = ZeroTimeTail(*loaded.symbol, extent.records);
    const RecordScan scan = ScanRecordTimes(*loaded.symbol, extent.records - zeroTail);
    if (!scan.readError.empty()) return Fail(err, path, "cannot repair: " + scan.readError);
    if (!scan.problems.empty()) {
      return Fail(err, path,
                  "cannot repair: record times out of order (" +
                      OrderProblemText(scan.problems[0]) + "; " +
                      std::to_string(scan.problems.size()) + " in all); nothing was cut");
    }
  }
  if (extent.partialBytes > 0 || zeroTail > 0) return CutRecords(path, extent, zeroTail, out, err);
  if (recovered) {
    out << extent.records << " whole records remain\n";
  } else {
    out << "nothing to repair: " << extent.records << " whole records\n";
  }
  return kExitOk;
}

bool Recovered(RecoveryReport const& report) {
  return report.framesReplayed > 0 || report.filesCut > 0 || report.framesVoided > 0;
}

std::string RecoveryText(RecoveryReport const& report) {
  if (!Recovered(report)) return "log: nothing to recover";
  std::vector<std::string> parts;
  if (report.framesReplayed > 0)
    parts.push_back(Counted(report.framesReplayed, "frame") + " replayed");
  if (report.filesCut > 0)
    parts.push_back(Counted(report.filesCut, "file") + " cut back after an unfinished append");
  if (report.framesVoided > 0)
    parts.push_back(Counted(report.framesVoided, "later frame") + " void");
  std::string text =
      "log: recovered " + Counted(report.filesTouched.size(), "file") + " of the data folder: ";
  for (std::size_t i = 0; i < parts.size(); ++i) text += (i > 0 ? ", " : "") + parts[i];
  return text;
}

}  // namespace

int RunInfo(std::string const& path, std::ostream& out, std::ostream& err) {
  ShownFile shown(path);
  if (!shown.loaded.symbol) return Fail(err, path, shown.loaded.error);
  LoggedChanges changes;
  const Status status = shown.fileSystem.ChangesOf(path, &changes);
  if (!status.ok()) return Fail(err, path, status.reason());
  out << "file: " << path << '\n';
  PrintHeader(out, *shown.loaded.symbol);
  PrintExtent(out, path, ExtentOf(*shown.loaded.symbol));
  PrintLoggedChanges(out, changes);
  return kExitOk;
}

int RunDump(std::string const& path, DumpSelection const& selection, bool csv, std::ostream& out,
            std::ostream& err) {
  ShownFile shown(path);
  if (!shown.loaded.symbol) return Fail(err, path, shown.loaded.error);
  CSymbol& symbol = *shown.loaded.symbol;
  if (csv && !AllFloat(symbol)) return Fail(err, path, "--csv needs every view to hold floats");
  GET_SYMBOL_DATA_REQUEST request = DumpRequest(symbol, selection, ExtentOf(symbol).records);
  std::vector<unsigned char> records(std::size_t(std::max(request.count, 0)) *
                                     symbol.GetDataPointSize());
  request.buffer = reinterpret_cast<HostWord>(records.data());
  if (request.count > 0 && symbol.GetData(&request) == 0)
    return Fail(err, path, "records cannot be read");
  const int count = request.count;
  if (csv) {
    RecordLayout layout;
    for (CDATA_POINT_VIEW const& view : symbol.views()) layout.views.push_back(view.name);
    WriteCsv(out, layout, records.data(), std::size_t(count));
  } else {
    PrintRecordTable(out, symbol, records.data(), count);
  }
  return kExitOk;
}

int RunCheck(std::string const& path, std::ostream& out) {
  ShownFile shown(path);
  if (!shown.loaded.symbol) {
    out << "header does not load: " << shown.loaded.error << '\n';
    return kExitFailure;
  }
  CSymbol& symbol = *shown.loaded.symbol;
  const RecordExtent extent = ExtentOf(symbol);
  const int zeroTail = ZeroTimeTail(symbol, extent.records);
  const RecordScan scan = ScanRecordTimes(symbol, extent.records - zeroTail);
  const std::size_t problems = ListProblems(out, extent, zeroTail, scan);
  if (problems > 0) {
    out << problems << (problems == 1 ? " problem\n" : " problems\n");
    return kExitFailure;
  }
  out << "clean: " << extent.records << " records\n";
  return kExitOk;
}

int RunList(std::string const& folder, std::ostream& out, std::ostream& err) {
  const QFileInfo given(QString::fromStdString(folder));
  if (!given.isDir()) return Fail(err, folder, "not a folder");
  const QDir root(given.absoluteFilePath());
  QStringList paths;
  QDirIterator found(root.path(), {kDataFilePattern}, QDir::Files, QDirIterator::Subdirectories);
  while (found.hasNext()) paths.push_back(found.next());
  paths.sort();
  std::vector<Row> rows{{"provider", "name", "period", "code", "records", "first", "last"}};
  LoggedFileSystem fileSystem;
  bool allLoaded = true;
  for (QString const& path : paths) {
    bool loaded = false;
    rows.push_back(
        ListRow(QFileInfo(path), root.relativeFilePath(path).toStdString(), fileSystem, &loaded));
    allLoaded = allLoaded && loaded;
  }
  PrintTable(out, rows);
  return allLoaded ? kExitOk : kExitFailure;
}

int RunRepair(std::string const& path, std::ostream& out, std::ostream& err) {
  const std::string folder = DataFolderOf(FileSystem::Default(), AbsolutePath(path));
  std::unique_ptr<FolderLock> lock;  // held until the repair ends
  RecoveryReport report;
  if (!folder.empty()) {
    Status status = FolderLock::Acquire(folder, &lock);
    if (status.reason() == FolderLock::kHeldElsewhere) {
      return Fail(err, path,
                  "cannot repair: a running module holds the data folder " + folder +
                      "; stop it first. Nothing was changed");
    }
    if (!status.ok()) return Fail(err, path, "cannot repair: " + status.ToString());
    std::unique_ptr<WriteAheadLog> log;
    status =
        WriteAheadLog::Open(FileSystem::Default(), folder, DurabilitySettings(), &log, &report);
    if (!status.ok())
      return Fail(err, path, "cannot repair: recovering the log failed: " + status.ToString());
    out << RecoveryText(report) << '\n';
  }
  return RepairRecords(path, Recovered(report), out, err);
}
