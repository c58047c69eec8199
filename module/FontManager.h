// FontManager.h: font families and size corrections for the host's screen
// elements, chosen by the host's current language.
//
// Guarantees: a manager's table is fixed at construction; GetFont answers
// "Arial" for a code that is not in it. DefaultManager serves every language
// but "Chinese (Simplified)", which ChinaManager serves with "SimSun" for
// every element and sizes two points larger.
//
// Thread-safety: a constructed manager is read-only and may be shared.
// FontOperationSystemFactory is not thread-safe.

#ifndef DATASTORE_MODULE_FONTMANAGER_H_
#define DATASTORE_MODULE_FONTMANAGER_H_

#include <QFont>
#include <QMap>
#include <QString>

namespace font {

// Screen elements of the host. The tables fix only code and family; ELEMENT_3
// is the one fixed-pitch element.
enum elementCode : int {
  ELEMENT_1 = 1,
  ELEMENT_2 = 2,
  ELEMENT_3 = 3,
  ELEMENT_4 = 4,
  ELEMENT_5 = 5,
  ELEMENT_6 = 6,
  ELEMENT_7 = 7,
  ELEMENT_8 = 8,
  ELEMENT_9 = 9,
  ELEMENT_10 = 10,
  ELEMENT_11 = 11,
  ELEMENT_12 = 12,
  ELEMENT_13 = 13,
  ELEMENT_14 = 14,
  ELEMENT_15 = 15,
  ELEMENT_16 = 16,
  ELEMENT_17 = 17,
  ELEMENT_18 = 18,
};

// The font of one element.
struct Element {
  QString family;  // font family name
};

class Manager {
 public:
  virtual ~Manager() = default;
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  // The size to use for an element designed at size.
  virtual int getFontSize(int size) const = 0;

  // The element's family, or "Arial" when the table has no entry for code.
  QString GetFont(elementCode code) const;
  QMap<elementCode, Element> const& elements() const { return elements_; }

 protected:
  Manager() = default;
  void Add(elementCode code, QString const& family);

 private:
  QMap<elementCode, Element> elements_;  // the table, ordered by code
};

// Every language but "Chinese (Simplified)": "Tahoma", "Arial" and "Courier
// New"; ELEMENT_9 has no entry. Sizes unchanged.
class DefaultManager : public Manager {
 public:
  DefaultManager();
  int getFontSize(int size) const override;
};

// "Chinese (Simplified)": "SimSun" for every element; sizes kSizeIncrease larger.
class ChinaManager : public Manager {
 public:
  static constexpr int kSizeIncrease = 2;  // points added to every size

  ChinaManager();
  int getFontSize(int size) const override;
};

// A new ChinaManager for "Chinese (Simplified)", otherwise a new
// DefaultManager. The caller owns the result.
Manager* CreateManager(QString const& language);

// Maps fonts to the fonts that replace them on this operating system.
class FontOperationSystemFactory {
 public:
  void Insert(QFont const& font, QFont const& replacement);
  // The replacement of font, or font itself when it has none.
  QFont GetFont(QFont const& font) const;

 private:
  QMap<QFont, QFont> replacements_;  // font to its replacement
};

// This operating system needs no replacement: a copy of font.
QFont GetOperationSystemFont(QFont const& font);

}  // namespace font

// Base of widgets that correct their fonts for the operating system. No
// correction is needed on this one, so both operations do nothing.
class CVdFontBase {
 public:
  void OperationSystemFontCorrection() {}
  void OperationSystemFontInvertCorrection() {}
};

#endif  // DATASTORE_MODULE_FONTMANAGER_H_
