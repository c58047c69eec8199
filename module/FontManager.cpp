// FontManager.cpp: the font tables of the two language groups.

#include "FontManager.h"

namespace font {

namespace {

constexpr QLatin1String kChineseSimplified("Chinese (Simplified)");  // served by ChinaManager
constexpr QLatin1String kTahoma("Tahoma");
constexpr QLatin1String kArial("Arial");
constexpr QLatin1String kCourierNew("Courier New");
constexpr QLatin1String kSimSun("SimSun");
constexpr QLatin1String kFallbackFamily = kArial;  // family of an element not in a table

}  // namespace

QString Manager::GetFont(elementCode code) const {
  auto it = elements_.constFind(code);
  return it == elements_.constEnd() ? QString(kFallbackFamily) : it->family;
}

void Manager::Add(elementCode code, QString const& family) {
  elements_.insert(code, Element{family});
}

DefaultManager::DefaultManager() {
  Add(ELEMENT_5, kTahoma);
  Add(ELEMENT_6, kTahoma);
  Add(ELEMENT_7, kArial);
  Add(ELEMENT_8, kArial);
  Add(ELEMENT_10, kArial);
  Add(ELEMENT_3, kCourierNew);
  Add(ELEMENT_4, kTahoma);
  Add(ELEMENT_11, kArial);
  Add(ELEMENT_12, kArial);
  Add(ELEMENT_16, kTahoma);
  Add(ELEMENT_13, kArial);
  Add(ELEMENT_14, kTahoma);
  Add(ELEMENT_15, kTahoma);
  Add(ELEMENT_17, kTahoma);
  Add(ELEMENT_18, kArial);
  Add(ELEMENT_1, kTahoma);
  Add(ELEMENT_2, kArial);
}

int DefaultManager::getFontSize(int size) const { return size; }

ChinaManager::ChinaManager() {
  for (elementCode code : {ELEMENT_5, ELEMENT_6, ELEMENT_7, ELEMENT_8, ELEMENT_1, ELEMENT_2,
                           ELEMENT_10, ELEMENT_3, ELEMENT_4, ELEMENT_12, ELEMENT_11, ELEMENT_16,
                           ELEMENT_13, ELEMENT_14, ELEMENT_15, ELEMENT_17, ELEMENT_18, ELEMENT_9}) {
    Add(code, kSimSun);
  }
}

int ChinaManager::getFontSize(int size) const { return size + kSizeIncrease; }

Manager* CreateManager(QString const& language) {
  if (language == kChineseSimplified) return new ChinaManager;
  return new DefaultManager;
}

void FontOperationSystemFactory::Insert(QFont const& font, QFont const& replacement) {
  replacements_.insert(font, replacement);
}

QFont FontOperationSystemFactory::GetFont(QFont const& font) const {
  return replacements_.value(font, font);
}

QFont GetOperationSystemFont(QFont const& font) { return font; }

}  // namespace font
