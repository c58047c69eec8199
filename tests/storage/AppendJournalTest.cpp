// The append journal: the bytes an append notes, which files a later open
// rolls back, and which it must leave alone.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "CjdTestFiles.h"
#include "SDTFile.h"

namespace {

using cjdtest::Bytes;

constexpr std::size_t kEntrySize = 40;
constexpr std::size_t kHeadSize = 16;

class AppendJournalTest : public ::testing::Test {
 protected:
  void SetUp() override { cjdtest::WriteFileBytes(path_, fields_.File(stored_)); }

  std::uint64_t SizeBefore() const { return fields_.Layout().firstRecord + stored_.size(); }
  std::string JournalPath() const { return path_ + ".journal"; }
  Bytes Journal() const { return cjdtest::ReadFileBytes(JournalPath()); }

  // Appends the batch through a symbol that stays open, as one whose process
  // dies before it closes the file.
  std::unique_ptr<CSymbol> AppendAndStayOpen() {
    std::unique_ptr<CSymbol> symbol = cjdtest::OpenSymbol(owner_, path_);
    symbol->InsertData(3, batch_.data());
    return symbol;
  }

  cjdtest::ScratchDir dir_;
  std::string path_ = dir_.File("EURUSD_I0_EURUSD.cjd");
  cjdtest::HeaderFields fields_ = cjdtest::TickFields();
  std::mt19937 rng_{7};
  Bytes stored_ = cjdtest::MakeRecords({10, 20}, fields_.RecordSize(), rng_);
  Bytes batch_ = cjdtest::MakeRecords({30, 40, 50}, fields_.RecordSize(), rng_);
  cjdtest::TestOwner owner_;
};

TEST_F(AppendJournalTest, AnAppendNotesBothSizesAndItsFirstBytesUntilTheFileCloses) {
  std::unique_ptr<CSymbol> symbol = AppendAndStayOpen();
  Bytes expected = {'C', 'J', 'D', 'A', 'P', 'P', 'N', 'D'};
  cjdtest::AppendLittleEndian<std::uint64_t>(expected, SizeBefore());
  cjdtest::AppendLittleEndian<std::uint64_t>(expected, SizeBefore() + batch_.size());
  expected.insert(expected.end(), batch_.begin(), batch_.begin() + kHeadSize);
  EXPECT_EQ(Journal(), expected);
  symbol.reset();
  EXPECT_EQ(Journal(), Bytes(kEntrySize, 0));
}

// The data file as a later open finds it: the stored records, then `kept`
// bytes of the batch (or of other records), then whatever `extra` adds.
struct FoundFile {
  const char* what;
  std::size_t kept;   // bytes of the batch that reached the file
  bool foreignBytes;  // those bytes are another file's, not the batch's
  std::size_t extra;  // bytes appended later without the journal
  bool rolledBack;    // whether the open undoes the append
};

TEST_F(AppendJournalTest, OnlyAFilePartWayThroughTheNotedAppendIsRolledBack) {
  const std::size_t recordSize = fields_.RecordSize();
  const FoundFile cases[] = {
      {"one byte of the append", 1, false, 0, true},
      {"one whole record of three", recordSize, false, 0, true},
      {"past the noted first bytes", 2 * recordSize - 1, false, 0, true},
      {"nothing of the append", 0, false, 0, false},
      {"the whole append", 3 * recordSize, false, 0, false},
      {"appended to since", 3 * recordSize, false, recordSize, false},
      {"replaced by another file of a size in between", 2 * recordSize, true, 0, false},
  };
  for (FoundFile const& found : cases) {
    SCOPED_TRACE(found.what);
    SetUp();
    std::unique_ptr<CSymbol> writer = AppendAndStayOpen();
    Bytes part(batch_.begin(), batch_.begin() + static_cast<long>(found.kept));
    if (found.foreignBytes) part = cjdtest::MakeRecords({31, 41}, recordSize, rng_);
    const Bytes later = cjdtest::MakeRecords({60}, recordSize, rng_);
    part.insert(part.end(), later.begin(), later.begin() + static_cast<long>(found.extra));
    const Bytes file = fields_.File(cjdtest::Concatenated(stored_, part));
    cjdtest::WriteFileBytes(path_, file);
    const Bytes journal = Journal();

    const std::size_t whole = (found.rolledBack ? 0 : part.size()) / recordSize * recordSize;
    const Bytes seen = cjdtest::Concatenated(stored_, Bytes(part.begin(), part.begin() + static_cast<long>(whole)));
    EXPECT_EQ(cjdtest::RecordsOf(path_, false), seen);
    EXPECT_EQ(cjdtest::ReadFileBytes(path_), file) << "a reader changed the file";
    EXPECT_EQ(cjdtest::RecordsOf(path_, true), seen);
    EXPECT_EQ(cjdtest::ReadFileBytes(path_).size(), found.rolledBack ? SizeBefore() : file.size());
    EXPECT_EQ(Journal(), found.rolledBack ? Bytes(kEntrySize, 0) : journal);
  }
}

TEST_F(AppendJournalTest, RewritingOrCreatingTheFileClearsTheEntry) {
  std::unique_ptr<CSymbol> symbol = AppendAndStayOpen();
  Bytes earlier = cjdtest::MakeRecords({15}, fields_.RecordSize(), rng_);
  symbol->InsertData(1, earlier.data());
  EXPECT_EQ(Journal(), Bytes(kEntrySize, 0)) << "after a rewrite";

  symbol.reset();
  SetUp();
  symbol = AppendAndStayOpen();
  const Bytes entry = Journal();
  ASSERT_NE(entry, Bytes(kEntrySize, 0));
  symbol.reset();
  cjdtest::WriteFileBytes(JournalPath(), entry);  // as left by a process that died
  std::filesystem::remove(path_);
  CSDTFile created(nullptr, path_.c_str());
  created.Open(false);
  ASSERT_TRUE(created.IsOpen());
  EXPECT_EQ(Journal(), Bytes(kEntrySize, 0)) << "after the file was made anew";
}

}  // namespace
