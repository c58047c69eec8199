// Font tables by language, the fallback family and the operating-system font map.

#include "FontManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

namespace {

using Table = std::vector<std::pair<int, QString>>;

// The manager's table as (code, family) pairs in code order.
Table Contents(font::Manager const& manager) {
  Table table;
  for (auto it = manager.elements().constBegin(); it != manager.elements().constEnd(); ++it) {
    table.emplace_back(it.key(), it.value().family);
  }
  return table;
}

}  // namespace

TEST(FontDefaultManager, TableHoldsSeventeenCodesWithoutNine) {
  font::DefaultManager manager;
  Table const expected = {
      {1, "Tahoma"}, {2, "Arial"},   {3, "Courier New"}, {4, "Tahoma"},  {5, "Tahoma"},
      {6, "Tahoma"}, {7, "Arial"},   {8, "Arial"},       {10, "Arial"},  {11, "Arial"},
      {12, "Arial"}, {13, "Arial"},  {14, "Tahoma"},     {15, "Tahoma"}, {16, "Tahoma"},
      {17, "Tahoma"}, {18, "Arial"},
  };
  EXPECT_EQ(Contents(manager), expected);
  EXPECT_EQ(manager.GetFont(font::ELEMENT_3), "Courier New");
  EXPECT_EQ(manager.GetFont(font::ELEMENT_9), "Arial");
  EXPECT_EQ(manager.GetFont(static_cast<font::elementCode>(0)), "Arial");
  EXPECT_EQ(manager.GetFont(static_cast<font::elementCode>(-5)), "Arial");
  EXPECT_EQ(manager.getFontSize(10), 10);
}

TEST(FontChinaManager, SimSunForAllEighteenCodesAndLargerSizes) {
  font::ChinaManager manager;
  Table expected;
  for (int code = 1; code <= 18; ++code) expected.emplace_back(code, "SimSun");
  EXPECT_EQ(Contents(manager), expected);
  EXPECT_EQ(manager.GetFont(font::ELEMENT_9), "SimSun");
  EXPECT_EQ(manager.GetFont(static_cast<font::elementCode>(19)), "Arial");
  EXPECT_EQ(manager.getFontSize(10), 12);
  EXPECT_EQ(manager.getFontSize(-2), 0);
}

TEST(FontCreateManager, ChoosesByExactLanguageName) {
  std::unique_ptr<font::Manager> chinese(font::CreateManager("Chinese (Simplified)"));
  EXPECT_NE(dynamic_cast<font::ChinaManager*>(chinese.get()), nullptr);
  EXPECT_EQ(chinese->getFontSize(10), 12);  // through the base class

  for (char const* language : {"English", "Chinese (Traditional)", "chinese (simplified)", ""}) {
    std::unique_ptr<font::Manager> other(font::CreateManager(language));
    EXPECT_NE(dynamic_cast<font::DefaultManager*>(other.get()), nullptr) << language;
  }
}

TEST(FontOperationSystem, FactoryMapsKnownFontsAndKeepsOthers) {
  QFont const tahoma("Tahoma", 10);
  QFont const arial("Arial", 12);
  QFont const courier("Courier New", 9);
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
