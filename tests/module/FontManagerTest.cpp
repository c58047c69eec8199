// Font managers by language, the fallback family and the operating-system font map.

#include "FontManager.h"

#include <gtest/gtest.h>

#include <memory>

TEST(FontManagers, DefaultTableAndChinaTableWithLargerSizes) {
  font::DefaultManager manager;
  EXPECT_EQ(manager.GetFont(font::ELEMENT_3), "Courier New");
  for (int code : {9, 0, -5, 19}) {
    EXPECT_EQ(manager.GetFont(static_cast<font::elementCode>(code)), "Arial") << code;
  }
  EXPECT_EQ(manager.getFontSize(10), 10);

  font::ChinaManager china;
  EXPECT_EQ(china.elements().size(), 18);
  EXPECT_EQ(china.GetFont(font::ELEMENT_9), "SimSun");
  EXPECT_EQ(china.GetFont(static_cast<font::elementCode>(19)), "Arial");
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
