// Data files are untrusted input: damaged headers are refused without
// touching the symbol, sound ones load completely, and no damage makes a
// later read or insert crash or read beyond the file.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "CjdTestFiles.h"
#include "FaultyFileSystem.h"

namespace {

using cjdtest::Bytes;
using cjdtest::HeaderFields;

constexpr int kStoredCount = 20;
constexpr std::int32_t kFirstTime = 1'000'000;
constexpr std::int32_t kTimeStep = 60;
constexpr int kDamagedCopies = 3000;

class HeaderDamageTest : public ::testing::Test {
 protected:
  HeaderDamageTest() {
    fields_.descriptions = {{"Exchange", "Demo"}};
    records_ = cjdtest::MakeRecords(cjdtest::TimesFrom(kFirstTime, kStoredCount, kTimeStep),
                                    fields_.RecordSize(), rng_);
    valid_ = fields_.File(records_);
  }

  // Writes the file and expects LoadProperties to refuse it and leave the
  // symbol as it was made.
  void ExpectRefused(Bytes const& file, std::string const& what) {
    SCOPED_TRACE(what);
    cjdtest::WriteFileBytes(path_, file);
    CSymbol symbol(&owner_, path_.c_str());
    EXPECT_EQ(symbol.LoadProperties(), 1);
    EXPECT_TRUE(symbol.views().empty());
    EXPECT_TRUE(symbol.descriptions().empty());
    EXPECT_EQ(symbol.descriptionCount(), 0);
    EXPECT_TRUE(symbol.name()[0] == 0 && symbol.title()[0] == 0 && symbol.providerName()[0] == 0);
    EXPECT_EQ(symbol.code()[0], 0);
    EXPECT_EQ(symbol.period().kind, 0);
  }

  // The valid file with one field replaced.
  template <typename T>
  Bytes With(std::size_t offset, T value) const {
    Bytes file = valid_;
    cjdtest::PutLittleEndian<T>(file, offset, value);
    return file;
  }

  cjdtest::ScratchDir dir_;
  std::string path_ = dir_.File("damaged.cjd");
  cjdtest::TestOwner owner_;
  std::mt19937 rng_{3};
  HeaderFields fields_;
  Bytes records_;
  Bytes valid_;
};

// Each field that places or sizes what follows, the version, the type text,
// each view type and each text length, damaged on its own.
TEST_F(HeaderDamageTest, DamagedFieldsAreRefused) {
  const std::size_t sizeField = fields_.D() + cjd::kHeaderSizeFieldBase;  // H, then the view count
  const std::uint16_t descriptionsToTheEnd =
      (valid_.size() - cjd::kDescriptionsOffset) / cjd::kDescriptionSize + 1;
  Bytes viewsAndSize = With<std::uint8_t>(sizeField + 4, 0xFF);
  cjdtest::PutLittleEndian<std::uint32_t>(viewsAndSize, sizeField, cjd::HeaderSize(0xFF));
  const std::pair<Bytes, const char*> damaged[] = {
      {With<std::uint32_t>(cjd::kDescriptionAreaOffsetField, valid_.size()),
       "D at the end of the file"},
      {With<std::uint32_t>(cjd::kDescriptionAreaOffsetField, 0xFFFFFFFF), "largest D"},
      {With<std::uint32_t>(sizeField, valid_.size()), "H as large as the file"},
      {With<std::uint32_t>(sizeField, 0xFFFFFFFF), "largest H"},
      {With<std::uint16_t>(cjd::kDescriptionCountOffset, descriptionsToTheEnd),
       "descriptions beyond the file"},
      {With<std::uint16_t>(cjd::kDescriptionCountOffset, 0xFFFF), "65535 descriptions"},
      {With<std::uint8_t>(sizeField + 4, 0xFF), "255 views"},
      {viewsAndSize, "255 views with a header size to match"},
      {With<std::uint16_t>(cjd::kVersionOffset, 2), "version 2"},
      {With<std::uint16_t>(cjd::kVersionOffset, 0), "version 0"},
  };
  for (auto const& [file, what] : damaged) ExpectRefused(file, what);

  std::vector<std::pair<HeaderFields, std::string>> changed;
  auto change = [&](std::string what) -> HeaderFields& {
    return changed.emplace_back(fields_, what).first;
  };
  change("first view type 7").views.front().type = cjd::kMaxViewTypes;
  change("last view type 255").views.back().type = 0xFF;
  for (const char* type : {"Component Jet Data Filf", "Component Jet Data Fil",
                           "Component Jet Data Files", "component Jet Data File"}) {
    change(type).fileType = type;
  }
  const std::string tooLong(cjd::kTextBytes, 'x');  // has the length byte 255
  change("file type of length 255").fileType = tooLong;
  change("description name of length 255").descriptions[0].first = tooLong;
  change("description value of length 255").descriptions[0].second = tooLong;
  change("view name of length 255").views[0].name = tooLong;
  change("name of length 255").name = tooLong;
  change("title of length 255").title = tooLong;
  change("provider of length 255").provider = tooLong;
  change("code of length 255").code = tooLong;
  for (auto const& [fields, what] : changed) ExpectRefused(fields.File(records_), what);
}

// The header writer does not write the reserved word, so a new file ends
// before it; such a file loads, and its records start after the word all the
// same. Every shorter file is refused.
TEST_F(HeaderDamageTest, HeaderCutShortIsRefusedUnlessOnlyTheReservedWordIsMissing) {
  const std::size_t headerEnd = fields_.Header().size();
  for (std::size_t length = 0; length <= fields_.FirstRecord(); ++length) {
    const Bytes file(valid_.begin(), valid_.begin() + static_cast<long>(length));
    const std::string what = "cut to " + std::to_string(length) + " bytes";
    if (length < headerEnd) {
      ExpectRefused(file, what);
      if (HasFailure()) return;
      continue;
    }
    SCOPED_TRACE(what);
    cjdtest::WriteFileBytes(path_, file);
    auto symbol = cjdtest::OpenSymbol(owner_, path_);
    ASSERT_NE(symbol, nullptr);
    EXPECT_EQ(symbol->GetDataPointCount(), 0);
    EXPECT_EQ(symbol->file()->FirstRecordOffset(), fields_.FirstRecord());
  }
}

// Every view type and the longest texts load: written anew from what was
// loaded, the header is the same. Room left after the descriptions and after
// the properties shows that the stored D and H place the records, not values
// recomputed from the counts; a new file gets them from the counts.
TEST_F(HeaderDamageTest, SoundHeaderLoadsEveryFieldAndItsRecordsWhereDAndHSay) {
  HeaderFields fields;
  const std::string longest(cjd::kMaxTextLength, 'x');
  fields.descriptions = {{"Exchange", "Demo"}, {"", longest}};
  fields.views = {{DATA_POINT_CHAR, "c"},  {DATA_POINT_SHORT, "s"},     {DATA_POINT_INT, "i"},
                  {DATA_POINT_INT64, "l"}, {DATA_POINT_FLOAT, longest}, {DATA_POINT_DOUBLE, "d"},
                  {DATA_POINT_STRING, "t"}};
  fields.name = "Caf\xE9";
  fields.title = "Title";
  fields.provider = "Provider";
  fields.code = "CODE";
  fields.pointSize = 0.25f;
  fields.extraD = 100;
  fields.extraH = 60;
  const Bytes records =
      cjdtest::MakeRecords({kFirstTime, kFirstTime + 1}, fields.RecordSize(), rng_);
  cjdtest::WriteFileBytes(path_, fields.File(records));
  auto symbol = cjdtest::OpenSymbol(owner_, path_);
  ASSERT_NE(symbol, nullptr);
  EXPECT_EQ(symbol->GetDataPointSize(), fields.RecordSize());
  EXPECT_EQ(symbol->file()->FirstRecordOffset(), fields.FirstRecord());
  EXPECT_EQ(cjdtest::AllRecords(*symbol), records);
  Bytes later = cjdtest::MakeRecords({kFirstTime + 2}, fields.RecordSize(), rng_);
  symbol->InsertData(1, later.data());
  ASSERT_EQ(symbol->Create(dir_.dir.path()), 0);  // the loaded fields written to a new file
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), fields.File(cjdtest::Concatenated(records, later)));
  fields.extraD = fields.extraH = 0;
  fields.name = "Caf\xC3\xA9";  // read one byte per character, written in UTF-8
  EXPECT_EQ(cjdtest::ReadFileBytes(symbol->file()->path()), fields.Header());
}

// Random bytes of a sound file damaged (mostly in the header), or the file
// cut: loading may refuse it, but nothing after it may crash (run under the
// address sanitizer too) and, once loaded, nothing reads beyond the file.
TEST_F(HeaderDamageTest, RandomDamageNeverCrashesOrReadsPastTheFile) {
  cjdtest::FaultyFileSystem fileSystem;
  cjdtest::TestOwner owner(true, &fileSystem);
  for (std::uint32_t seed = 77; seed < 77 + kDamagedCopies; ++seed) {
    SCOPED_TRACE("damage seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto uniform = [&rng](std::size_t high) {
      return std::uniform_int_distribution<std::size_t>(0, high)(rng);
    };
    Bytes file = valid_;
    const std::size_t damageEnd = uniform(5) < 5 ? fields_.FirstRecord() - 1 : file.size() - 1;
    for (std::size_t hits = uniform(3) + 1; hits > 0; --hits)
      file[uniform(damageEnd)] = std::uint8_t(rng());
    if (uniform(5) == 0) file.resize(uniform(file.size()));
    cjdtest::WriteFileBytes(path_, file);
    fileSystem.Arm({});
    CSymbol symbol(&owner, path_.c_str());
    const bool loaded = symbol.LoadProperties() == 0;
    symbol.Open();
    const int asked = std::max(symbol.GetDataPointCount(), 0) + 5;  // more than stored
    Bytes buffer(static_cast<std::size_t>(asked) * symbol.GetDataPointSize());
    for (int mode : {int{kGetNewest}, int{kGetTimeRange}, int{kGetOldest}, 3, -1}) {
      GET_SYMBOL_DATA_REQUEST request =
          cjdtest::MakeRequest(mode, asked, buffer.data(), kFirstTime, INT32_MAX);
      symbol.GetDataCount(&request);
      request.count = asked;
      symbol.GetData(&request);
      EXPECT_LE(request.count, asked);
    }
    Bytes batch = cjdtest::MakeRecords({kFirstTime + 1, kFirstTime + kStoredCount * kTimeStep},
                                       symbol.GetDataPointSize(), rng);
    symbol.InsertData(2, batch.data());
    EXPECT_TRUE(!loaded || fileSystem.readsPastEnd == 0) << "a loaded file read past its end";
    if (HasFailure()) return;
  }
}

}  // namespace
