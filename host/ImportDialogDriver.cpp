#include "ImportDialogDriver.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QPushButton>
#include <QTableWidget>

namespace {

// The module's table columns.
constexpr int kCheckColumn = 0;
constexpr int kSymbolColumn = 1;
constexpr int kPeriodColumn = 2;
constexpr int kPriceTypeColumn = 5;

QString CellText(const QTableWidget& table, int row, int column) {
  const QTableWidgetItem* item = table.item(row, column);
  return item == nullptr ? QString() : item->text();
}

bool IsChecked(const QTableWidget& table, int row) {
  const QTableWidgetItem* item = table.item(row, kCheckColumn);
  return item != nullptr && item->checkState() == Qt::Checked;
}

QString PriceType(const QTableWidget& table, int row) {
  const auto* box = qobject_cast<const QComboBox*>(table.cellWidget(row, kPriceTypeColumn));
  return box == nullptr ? QString() : box->currentText();
}

}  // namespace

void HostTranslator::learn(const ModuleHost& host) {
  for (const ModuleHost::Translation& translation : host.translations()) {
    texts_.emplace(translation.key, QString::fromLocal8Bit(translation.text));
  }
}

QString HostTranslator::translate(const char*, const char* sourceText, const char*, int) const {
  if (sourceText == nullptr) return QString();
  const auto it = texts_.find(sourceText);
  return it == texts_.end() ? QString() : it->second;
}

QString HostTranslator::text(const char* key) const {
  const QString translated = translate(nullptr, key, nullptr, -1);
  return translated.isNull() ? QString::fromLatin1(key) : translated;
}

QDialog* FindOpenDialog() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    auto* dialog = qobject_cast<QDialog*>(widget);
    if (dialog != nullptr && dialog->isVisible()) return dialog;
  }
  return nullptr;
}

QPushButton* FindButton(QDialog* dialog, const QString& text) {
  for (QPushButton* button : dialog->findChildren<QPushButton*>()) {
    if (button->text() == text) return button;
  }
  return nullptr;
}

std::vector<ImportRow> CheckedRows(QDialog* dialog) {
  std::vector<ImportRow> rows;
  const auto* table = dialog->findChild<QTableWidget*>();
  if (table == nullptr) return rows;
  for (int row = 0; row < table->rowCount(); ++row) {
    if (table->isRowHidden(row) || !IsChecked(*table, row)) continue;
    rows.push_back({CellText(*table, row, kSymbolColumn), CellText(*table, row, kPeriodColumn),
                    PriceType(*table, row)});
  }
  return rows;
}
