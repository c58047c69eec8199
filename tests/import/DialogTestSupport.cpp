#include "DialogTestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDateTime>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QTableWidget>
#include <QTest>
#include <QTranslator>
#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace dialog_test {

namespace {

constexpr char kTranslationContext[] = "CTransImportTest";
constexpr int kCandleSize = 24;

void WriteFile(QString const& path, QByteArray const& bytes) { ASSERT_TRUE(WriteFileBytes(path, bytes)); }

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

void WriteMaster(QString const& dir, std::vector<ExportIndexRecord> const& records) {
  QByteArray bytes = EncodeMaster(records);
  for (std::size_t k = 0; k < records.size(); ++k) {
    const int end = kMasterRecordSize * static_cast<int>(k + 2);
    const int padding = kMasterSymbolSize - std::min<int>(records[k].symbol.size(), kMasterSymbolSize);
    std::fill(bytes.begin() + end - padding, bytes.begin() + end, '\0');
  }
  WriteFile(dir + QStringLiteral("/MASTER"), bytes);
}

void WriteDataFile(QString const& dir, int fileNumber, int recordLength,
                   std::vector<std::vector<float>> const& rows) {
  std::vector<std::vector<std::uint32_t>> words;
  for (auto const& row : rows) {
    std::vector<std::uint32_t>& fields = words.emplace_back();
    for (float value : row) fields.push_back(MbfWord(value));
  }
  WriteFile(dir + QStringLiteral("/F%1.dat").arg(fileNumber), EncodeDataFile(recordLength, words));
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

int RecordingHost::Callback(void* context, unsigned int message, HostArg a, HostArg) {
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
