#include "DialogTestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDateTime>
#include <QFile>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QTableWidget>
#include <QTest>
#include <QTranslator>
#include <bit>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace dialog_test {

namespace {

constexpr int kRecordSize = 53;
constexpr int kSymbolBytes = 17;
constexpr char kTranslationContext[] = "CTransImportTest";
constexpr int kCandleSize = 24;

// IEEE single to MBF: the exponent moves from bias 127 to 129, the sign to bit 23.
std::uint32_t Mbf(float value) {
  if (value == 0) return 0;
  const auto word = std::bit_cast<std::uint32_t>(value);
  const std::uint32_t exponent = ((word >> 23) & 0xFF) + 2;
  return (exponent << 24) | ((word >> 31) << 23) | (word & 0x7FFFFF);
}

void Put(QByteArray& bytes, int offset, std::uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes[offset + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
}

void WriteFile(QString const& path, QByteArray const& bytes) {
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write(bytes);
}

// Returns "tr:" + key for the test module's context, nothing for others.
class KeyTranslator : public QTranslator {
 public:
  QString translate(const char* context, const char* key, const char*, int) const override {
    if (std::strcmp(context, kTranslationContext) != 0) return {};
    return QStringLiteral("tr:") + QLatin1String(key);
  }
  bool isEmpty() const override { return false; }
};

std::unique_ptr<CModule> testModule;

}  // namespace

void WriteMaster(QString const& dir, std::vector<IndexRecord> const& records) {
  QByteArray bytes(kRecordSize * static_cast<int>(records.size() + 1), '\0');
  Put(bytes, 0, static_cast<std::uint32_t>(records.size()), 2);
  for (std::size_t k = 0; k < records.size(); ++k) {
    const IndexRecord& r = records[k];
    const int at = kRecordSize * static_cast<int>(k + 1);
    Put(bytes, at, r.fileNumber, 1);
    Put(bytes, at + 3, r.recordLength, 1);
    Put(bytes, at + 4, r.fieldCount, 1);
    bytes[at + 33] = r.period;
    Put(bytes, at + 34, static_cast<std::uint32_t>(r.intradaySize), 2);
    std::memcpy(bytes.data() + at + 36, r.symbol.c_str(),
                std::min<std::size_t>(r.symbol.size(), kSymbolBytes));
  }
  WriteFile(dir + QStringLiteral("/MASTER"), bytes);
}

void WriteDataFile(QString const& dir, int fileNumber, int recordLength,
                   std::vector<std::vector<float>> const& rows) {
  QByteArray bytes(recordLength * static_cast<int>(rows.size() + 1), '\0');
  for (std::size_t r = 0; r < rows.size(); ++r) {
    for (std::size_t k = 0; k < rows[r].size(); ++k) {
      Put(bytes, recordLength * static_cast<int>(r + 1) + 4 * static_cast<int>(k), Mbf(rows[r][k]), 4);
    }
  }
  WriteFile(dir + QStringLiteral("/F%1.dat").arg(fileNumber), bytes);
}

std::int32_t LocalSeconds(int year, int month, int day, int hour, int minute, int second) {
  const QDateTime epoch(QDate(1970, 1, 1), QTime(0, 0));
  return static_cast<std::int32_t>(
      epoch.secsTo(QDateTime(QDate(year, month, day), QTime(hour, minute, second))));
}

RecordingHost& RecordingHost::instance() {
  static RecordingHost host;
  return host;
}

int RecordingHost::Callback(void* context, unsigned int message, HostArg a, HostArg b) {
  (void)b;
  RecordingHost& host = instance();
  std::size_t size = 0;
  if (message == HostMessage::GetInterface || message == HostMessage::GetMainMenu)
    size = sizeof(INTERFACE_REQUEST_RECORD);
  if (message == HostMessage::SetMenuParent) size = sizeof(MENU_PARENT_RECORD);
  if (message == HostMessage::AddMenuItem) size = sizeof(mm_menu_item);
  const auto* bytes = reinterpret_cast<const unsigned char*>(a);
  host.calls.push_back({context, message, std::vector<unsigned char>(bytes, bytes + (a != 0 ? size : 0))});
  if (message == HostMessage::GetMainWindowId && host.mainWindowId != 0)
    *reinterpret_cast<HostWord*>(a) = host.mainWindowId;
  if (message == HostMessage::UseWorkFolder && host.useWorkFolder)
    *reinterpret_cast<std::int32_t*>(a) = *host.useWorkFolder;
  return 0;
}

std::vector<unsigned int> RecordingHost::messages() const {
  std::vector<unsigned int> codes;
  for (HostCall const& call : calls) codes.push_back(call.message);
  return codes;
}

CModule& TestModule() {
  if (!testModule) {
    testModule = std::make_unique<CModule>("Import test", 1, 2, 3, "CImportTest",
                                           QString::fromLatin1(kTranslationContext));
  }
  return *testModule;
}

void ResetHost() {
  RecordingHost::instance() = RecordingHost{};
  TestModule().InitializeWrap(&RecordingHost::Callback, nullptr, &RecordingHost::instance(), nullptr);
}

int FakeTarget::OpenSymbol(SYMBOL_NAME_PERIOD* request, void** handle) {
  opened.push_back(*request);
  if (onOpen) onOpen();
  if (!refuseOpen) *handle = reinterpret_cast<void*>(opened.size());
  return 0;
}

int FakeTarget::InsertSymbolDataPost(INSERT_SYMBOL_DATA_REQUEST* request) {
  if (throwOnFirstInsert) {
    throwOnFirstInsert = false;
    throw std::runtime_error("refused");
  }
  std::vector<Candle> points(static_cast<std::size_t>(request->number));
  std::memcpy(points.data(), reinterpret_cast<const void*>(request->data), points.size() * kCandleSize);
  inserts.push_back({reinterpret_cast<void*>(request->handle), points, request->completionContext});
  return 0;
}

int FakeTarget::CloseSymbol(void* handle) {
  closed.push_back(handle);
  return 0;
}

void ClickCheckBox(QTableWidget* table, int row) {
  QStyleOptionViewItem option;
  option.initFrom(table->viewport());
  option.rect = table->visualItemRect(table->item(row, 0));
  option.features = QStyleOptionViewItem::HasCheckIndicator;
  const QRect box = table->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &option, table);
  QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, box.center());
}

std::u16string WideField(const char16_t* field, int units) {
  // The field may lie at an odd offset of a packed record: read bytes.
  std::u16string text;
  for (int i = 0; i < units; ++i) {
    char16_t unit;
    std::memcpy(&unit, reinterpret_cast<const char*>(field) + i * sizeof(char16_t), sizeof(unit));
    if (unit == 0) break;
    text += unit;
  }
  return text;
}

}  // namespace dialog_test

CModule* GetModule() { return &dialog_test::TestModule(); }

void PrintTo(QString const& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }

// Widgets need no display: offscreen unless the runner chose a platform.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  dialog_test::KeyTranslator translator;
  QApplication::installTranslator(&translator);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
