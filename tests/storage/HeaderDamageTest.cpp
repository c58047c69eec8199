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
constexpr std::uint8_t kBadLength = 255;
constexpr int kDamagedCopies = 3000;
constexpr int kMaxDamagedBytes = 4;
constexpr int kHeaderDamageShare = 5;  // of six damaged copies, this many are hit in the header only
constexpr int kExtraRequested = 5;     // records asked for beyond the stored ones
constexpr std::uint32_t kFirstDamageSeed = 77;
constexpr int kEveryMode[] = {cjdtest::kModeNewest, cjdtest::kModeRange, cjdtest::kModeOldest, 3, -1};

class HeaderDamageTest : public ::testing::Test {
 protected:
  HeaderDamageTest() {
    fields_.descriptions = {{"Exchange", "Demo"}};
    records_ =
        cjdtest::MakeRecords(cjdtest::TimesFrom(kFirstTime, kStoredCount, kTimeStep), fields_.RecordSize(), rng_);
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
    EXPECT_EQ(symbol.GetDataPointSize(), cjd::kTimeSize);
    EXPECT_EQ(symbol.name()[0], 0);
    EXPECT_EQ(symbol.title()[0], 0);
    EXPECT_EQ(symbol.providerName()[0], 0);
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

// The type and version, each field that places or sizes what follows, and
// each text length, damaged on its own.
TEST_F(HeaderDamageTest, DamagedFieldsAreRefused) {
  const cjdtest::HeaderLayout layout = fields_.Layout();
  const std::size_t lastViewType = layout.firstViewType + (fields_.views.size() - 1) * cjd::kViewSize;
  const std::uint16_t descriptionsToTheEnd =
      (valid_.size() - cjd::kDescriptionsOffset) / cjd::kDescriptionSize + 1;
  Bytes viewsAndSize = With<std::uint8_t>(layout.viewCountField, 0xFF);
  cjdtest::PutLittleEndian<std::uint32_t>(viewsAndSize, layout.headerSizeField, cjd::HeaderSize(0xFF));
  auto const ofType = [this](std::string const& type) {
    HeaderFields foreign = fields_;
    foreign.fileType = type;
    return foreign.File(records_);
  };
  const std::pair<Bytes, const char*> damaged[] = {
      {With<std::uint8_t>(layout.firstViewType, cjd::kMaxViewTypes), "first view of type 7"},
      {With<std::uint8_t>(lastViewType, 0xFF), "last view of type 255"},
      {With<std::uint32_t>(cjd::kDescriptionAreaOffsetField, valid_.size()), "D at the end of the file"},
      {With<std::uint32_t>(cjd::kDescriptionAreaOffsetField, 0xFFFFFFFF), "largest D"},
      {With<std::uint32_t>(layout.headerSizeField, valid_.size()), "H as large as the file"},
      {With<std::uint32_t>(layout.headerSizeField, 0xFFFFFFFF), "largest H"},
      {With<std::uint16_t>(cjd::kDescriptionCountOffset, descriptionsToTheEnd), "descriptions beyond the file"},
      {With<std::uint16_t>(cjd::kDescriptionCountOffset, 0xFFFF), "65535 descriptions"},
      {With<std::uint8_t>(layout.viewCountField, 0xFF), "255 views"},
      {viewsAndSize, "255 views with a header size to match"},
      {With<std::uint16_t>(cjd::kVersionOffset, 2), "version 2"},
      {With<std::uint16_t>(cjd::kVersionOffset, 0), "version 0"},
      {ofType("Component Jet Data Filf"), "type with its last letter changed"},
      {ofType("Component Jet Data Fil"), "type a letter short"},
      {ofType("Component Jet Data Files"), "type a letter long"},
      {ofType("component Jet Data File"), "type in other case"},
      {With<std::uint8_t>(0, kBadLength), "file type of length 255"},
      {With<std::uint8_t>(cjd::kDescriptionsOffset, kBadLength), "description name of length 255"},
      {With<std::uint8_t>(cjd::kDescriptionsOffset + cjd::kTextFieldSize, kBadLength),
       "description value of length 255"},
      {With<std::uint8_t>(layout.firstViewType + 1, kBadLength), "view name of length 255"},
      {With<std::uint8_t>(layout.nameField, kBadLength), "name of length 255"},
      {With<std::uint8_t>(layout.titleField, kBadLength), "title of length 255"},
      {With<std::uint8_t>(layout.providerField, kBadLength), "provider of length 255"},
      {With<std::uint8_t>(layout.codeField, kBadLength), "code of length 255"},
  };
  for (auto const& [file, what] : damaged) ExpectRefused(file, what);
}

TEST_F(HeaderDamageTest, EveryTruncationOfTheHeaderIsRefused) {
  const std::size_t headerEnd = fields_.Layout().headerEnd;
  for (std::size_t length = 0; length < headerEnd; ++length) {
    ExpectRefused(Bytes(valid_.begin(), valid_.begin() + static_cast<long>(length)),
                  "cut to " + std::to_string(length) + " bytes");
    if (HasFailure()) return;
  }
}

// The header writer does not write the reserved word, so a new file ends
// before it; the records start after it all the same.
TEST_F(HeaderDamageTest, HeaderWithoutItsReservedWordLoads) {
  const cjdtest::HeaderLayout layout = fields_.Layout();
  for (std::size_t length = layout.headerEnd; length <= layout.firstRecord; ++length) {
    SCOPED_TRACE("cut to " + std::to_string(length) + " bytes");
    cjdtest::WriteFileBytes(path_, Bytes(valid_.begin(), valid_.begin() + static_cast<long>(length)));
    auto symbol = cjdtest::OpenSymbol(owner_, path_);
    ASSERT_NE(symbol, nullptr);
    EXPECT_EQ(symbol->GetDataPointCount(), 0);
    EXPECT_EQ(symbol->file()->FirstRecordOffset(), layout.firstRecord);
  }
}

TEST_F(HeaderDamageTest, SoundHeaderLoadsEveryField) {
  HeaderFields fields;
  const std::string longest(cjd::kMaxTextLength, 'x');
  fields.descriptions = {{"Exchange", "Demo"}, {"", longest}};
  fields.views = {{DATA_POINT_CHAR, "c"},  {DATA_POINT_SHORT, "s"},     {DATA_POINT_INT, "i"},
                {DATA_POINT_INT64, "l"}, {DATA_POINT_FLOAT, longest}, {DATA_POINT_DOUBLE, "d"},
                {DATA_POINT_STRING, "t"}};
  fields.name = "Caf\xE9";  // read back one byte per character
  fields.title = "Title";
  fields.provider = "Provider";
  fields.code = "CODE";
  fields.pointSize = 0.25f;
  cjdtest::WriteFileBytes(path_, fields.File({}));
  CSymbol symbol(&owner_, path_.c_str());
  ASSERT_EQ(symbol.LoadProperties(), 0);
  EXPECT_EQ(symbol.descriptionCount(), 2);
  ASSERT_EQ(symbol.descriptions().size(), 2u);
  EXPECT_STREQ(symbol.descriptions()[0]->name, "Exchange");
  EXPECT_STREQ(symbol.descriptions()[0]->value, "Demo");
  EXPECT_STREQ(symbol.descriptions()[1]->name, "");
  EXPECT_EQ(std::string(symbol.descriptions()[1]->value), longest);
  ASSERT_EQ(symbol.views().size(), fields.views.size());
  for (std::size_t i = 0; i < fields.views.size(); ++i) {
    EXPECT_EQ(symbol.views()[i].type, fields.views[i].type);
    EXPECT_EQ(std::string(symbol.views()[i].name), fields.views[i].name);
  }
  EXPECT_EQ(symbol.GetDataPointSize(), fields.RecordSize());
  EXPECT_EQ(std::u16string(symbol.name()), u"Caf\u00E9");
  EXPECT_EQ(std::u16string(symbol.title()), u"Title");
  EXPECT_EQ(std::u16string(symbol.providerName()), u"Provider");
  EXPECT_STREQ(symbol.code(), "CODE");
  const SYMBOL_PERIOD period = symbol.period();
  const std::int32_t length = period.length;  // packed: copied before gtest binds a reference
  EXPECT_EQ(period.kind, 'I');
  EXPECT_EQ(length, 15);
  EXPECT_EQ(symbol.pointSize(), 0.25f);
}

// Room left after the descriptions and after the properties: the stored D
// and H place the records, not values recomputed from the counts.
TEST_F(HeaderDamageTest, RecordsStartWhereTheStoredOffsetsSay) {
  HeaderFields fields = fields_;
  fields.extraD = 100;
  fields.extraH = 60;
  cjdtest::WriteFileBytes(path_, fields.File(records_));
  auto symbol = cjdtest::OpenSymbol(owner_, path_);
  ASSERT_NE(symbol, nullptr);
  EXPECT_EQ(symbol->file()->FirstRecordOffset(), fields.Layout().firstRecord);
  EXPECT_EQ(cjdtest::AllRecords(*symbol), records_);
  Bytes later = cjdtest::MakeRecords({kFirstTime + kStoredCount * kTimeStep}, fields.RecordSize(), rng_);
  symbol->InsertData(1, later.data());
  symbol.reset();
  EXPECT_EQ(cjdtest::ReadFileBytes(path_), fields.File(cjdtest::Concatenated(records_, later)));
}

// Random bytes of a sound file damaged, or the file cut: loading may refuse
// it, but nothing after it may crash (run under the address sanitizer too)
// and, once loaded, nothing reads beyond the end of the file.
TEST_F(HeaderDamageTest, RandomDamageNeverCrashesOrReadsPastTheFile) {
  cjdtest::FaultyFileSystem fileSystem;
  cjdtest::TestOwner owner(true, &fileSystem);
  const std::size_t firstRecord = fields_.Layout().firstRecord;
  for (int copy = 0; copy < kDamagedCopies; ++copy) {
    const std::uint32_t seed = kFirstDamageSeed + static_cast<std::uint32_t>(copy);
    SCOPED_TRACE("damage seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto uniform = [&rng](std::size_t high) {
      return std::uniform_int_distribution<std::size_t>(0, high)(rng);
    };
    Bytes file = valid_;
    const std::size_t damageEnd = uniform(5) < kHeaderDamageShare ? firstRecord - 1 : file.size() - 1;
    for (std::size_t hits = uniform(kMaxDamagedBytes - 1) + 1; hits > 0; --hits) {
      file[uniform(damageEnd)] = static_cast<unsigned char>(rng());
    }
    if (uniform(5) == 0) file.resize(uniform(file.size()));
    cjdtest::WriteFileBytes(path_, file);
    fileSystem.Arm({});
    CSymbol symbol(&owner, path_.c_str());
    const bool loaded = symbol.LoadProperties() == 0;
    symbol.Open();
    const int total = symbol.GetDataPointCount();
    const int asked = std::max(total, 0) + kExtraRequested;
    Bytes buffer(static_cast<std::size_t>(asked) * symbol.GetDataPointSize());
    for (int mode : kEveryMode) {
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
    if (loaded) {
      EXPECT_EQ(fileSystem.readsPastEnd, 0);
    }
    if (HasFailure()) return;
  }
}

}  // namespace
