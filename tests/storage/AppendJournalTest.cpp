// The append journal: the bytes an append notes, which files a later open
// rolls back, and which it must leave alone.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "CjdTestFiles.h"
#include "SDTFile.h"

namespace {

using cjdtest::Bytes;

constexpr std::size_t kEntrySize = 40;  // tag, both sizes, the first 16 bytes appended

class AppendJournalTest : public ::testing::Test {
 protected:
  void SetUp() override { cjdtest::WriteFileBytes(path_, fields_.File(stored_)); }

  std::uint64_t SizeBefore() const { return fields_.FirstRecord() + stored_.size(); }
  Bytes Journal() const { return cjdtest::ReadFileBytes(path_ + ".journal"); }

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

// The data file as a later open finds it: the stored records, then part of
// the batch, more than the batch, or another file's records.
TEST_F(AppendJournalTest, OnlyAFilePartWayThroughTheNotedAppendIsRolledBack) {
  const std::size_t recordSize = fields_.RecordSize();
  auto head = [this](std::size_t bytes) {
    return Bytes(batch_.begin(), batch_.begin() + static_cast<long>(bytes));
  };
  const struct {
    const char* what;
    Bytes part;       // what reached the file after the stored records
    bool rolledBack;  // whether the open undoes the append
  } cases[] = {
      {"one byte of the append", head(1), true},
      {"one whole record of three", head(recordSize), true},
      {"past the noted first bytes", head(2 * recordSize - 1), true},
      {"nothing of the append", {}, false},
      {"the whole append", batch_, false},
      {"appended to since", cjdtest::Concatenated(batch_, cjdtest::MakeRecords({60}, recordSize, rng_)),
       false},
      {"replaced by another file of a size in between", cjdtest::MakeRecords({31, 41}, recordSize, rng_),
       false},
  };
  for (auto const& [what, part, rolledBack] : cases) {
    SCOPED_TRACE(what);
    SetUp();
    std::unique_ptr<CSymbol> writer = AppendAndStayOpen();
    const Bytes file = fields_.File(cjdtest::Concatenated(stored_, part));
    cjdtest::WriteFileBytes(path_, file);
    const Bytes journal = Journal();

    const std::size_t whole = (rolledBack ? 0 : part.size()) / recordSize * recordSize;
    const Bytes seen =
        cjdtest::Concatenated(stored_, Bytes(part.begin(), part.begin() + static_cast<long>(whole)));
    EXPECT_EQ(cjdtest::RecordsOf(path_, false), seen);
    EXPECT_EQ(cjdtest::ReadFileBytes(path_), file) << "a reader changed the file";
    EXPECT_EQ(cjdtest::RecordsOf(path_, true), seen);
    EXPECT_EQ(cjdtest::ReadFileBytes(path_).size(), rolledBack ? SizeBefore() : file.size());
    EXPECT_EQ(Journal(), rolledBack ? Bytes(kEntrySize, 0) : journal);
  }
}

// The entry names both sizes and the first bytes of the append; a close, a
// rewrite and a file made anew clear it.
TEST_F(AppendJournalTest, AnEntryNotesTheAppendUntilTheFileIsClosedRewrittenOrMadeAnew) {
  std::unique_ptr<CSymbol> symbol = AppendAndStayOpen();
  Bytes entry = {'C', 'J', 'D', 'A', 'P', 'P', 'N', 'D'};
  cjdtest::AppendLittleEndian<std::uint64_t>(entry, SizeBefore());
  cjdtest::AppendLittleEndian<std::uint64_t>(entry, SizeBefore() + batch_.size());
  entry.insert(entry.end(), batch_.begin(), batch_.begin() + 16);
  EXPECT_EQ(Journal(), entry);
  symbol.reset();
  EXPECT_EQ(Journal(), Bytes(kEntrySize, 0)) << "after a close";

  SetUp();
  symbol = AppendAndStayOpen();
  Bytes earlier = cjdtest::MakeRecords({15}, fields_.RecordSize(), rng_);
  symbol->InsertData(1, earlier.data());
  EXPECT_EQ(Journal(), Bytes(kEntrySize, 0)) << "after a rewrite";
  symbol.reset();

  cjdtest::WriteFileBytes(path_ + ".journal", entry);  // as left by a process that died
  std::filesystem::remove(path_);
  CSDTFile created(nullptr, path_.c_str());
  created.Open(false);
  ASSERT_TRUE(created.IsOpen());
  EXPECT_EQ(Journal(), Bytes(kEntrySize, 0)) << "after the file was made anew";
}

}  // namespace
