// Font managers by language, the fallback family and the operating-system font map.

#include "FontManager.h"

#include <gtest/gtest.h>

#include <memory>

// Every code of both tables, then codes neither table has: {code, default family, China family}.
struct FontRow {
  int code;
  char const* defaultFamily;
  char const* chinaFamily;
};
constexpr FontRow kFontRows[] = {
    {1, "Tahoma", "SimSun"},      {2, "Arial", "SimSun"},
    {3, "Courier New", "SimSun"}, {4, "Tahoma", "SimSun"},
    {5, "Tahoma", "SimSun"},      {6, "Tahoma", "SimSun"},
    {7, "Arial", "SimSun"},       {8, "Arial", "SimSun"},
    {9, "Arial", "SimSun"},  // 9: default falls back
    {10, "Arial", "SimSun"},      {11, "Arial", "SimSun"},
    {12, "Arial", "SimSun"},      {13, "Arial", "SimSun"},
    {14, "Tahoma", "SimSun"},     {15, "Tahoma", "SimSun"},
    {16, "Tahoma", "SimSun"},     {17, "Tahoma", "SimSun"},
    {18, "Arial", "SimSun"},      {0, "Arial", "Arial"},
    {-5, "Arial", "Arial"},       {19, "Arial", "Arial"},
};

TEST(FontManagers, DefaultTableAndChinaTableWithLargerSizes) {
  font::DefaultManager defaults;
  font::ChinaManager china;
  for (FontRow const& row : kFontRows) {
    auto const code = static_cast<font::elementCode>(row.code);
    EXPECT_EQ(defaults.GetFont(code), row.defaultFamily) << row.code;
    EXPECT_EQ(china.GetFont(code), row.chinaFamily) << row.code;
  }
  // 9 is absent from the default table (its "Arial" is the fallback), present in the Chinese one.
  EXPECT_EQ(defaults.elements().size(), 17);
  EXPECT_FALSE(defaults.elements().contains(font::ELEMENT_9));
  EXPECT_EQ(china.elements().size(), 18);

  EXPECT_EQ(defaults.getFontSize(10), 10);
  EXPECT_EQ(china.getFontSize(10), 12);
  EXPECT_EQ(china.getFontSize(-2), 0);
}

TEST(FontCreateManager, ChoosesByExactLanguageName) {
  std::unique_ptr<font::Manager> chinese(font::CreateManager("Chinese (Simplified)"));
  EXPECT_EQ(chinese->getFontSize(10), 12);  // a ChinaManager, through the base class

  for (char const* language : {"English", "Chinese (Traditional)", "chinese (simplified)", ""}) {
    std::unique_ptr<font::Manager> other(font::CreateManager(language));
    EXPECT_NE(dynamic_cast<font::DefaultManager*>(other.get()), nullptr) << language;
  }
}

TEST(FontOperationSystem, FactoryMapsKnownFontsAndKeepsOthers) {
  QFont const tahoma("Tahoma", 10), arial("Arial", 12), courier("Courier New", 9);
  font::FontOperationSystemFactory factory;
  EXPECT_EQ(factory.GetFont(tahoma), tahoma);
  factory.Insert(tahoma, arial);
  EXPECT_EQ(factory.GetFont(tahoma), arial);
  EXPECT_EQ(factory.GetFont(courier), courier);
  factory.Insert(tahoma, courier);  // a second insert replaces the first
  EXPECT_EQ(factory.GetFont(tahoma), courier);
  EXPECT_EQ(factory.GetFont(QFont("Tahoma", 11)), QFont("Tahoma", 11));

  EXPECT_EQ(font::GetOperationSystemFont(arial), arial);
}
