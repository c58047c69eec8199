#include "DialogConvertor.h"

#include <QCloseEvent>

#include "Convertor.h"

CDialogConvertor::CDialogConvertor(CConvertor* owner, QWidget* parent, const char* name, bool modal,
                                   Qt::WindowFlags flags)
    : QDialog(parent, flags), owner_(owner) {
  setObjectName(QString::fromLocal8Bit(name));
  setModal(modal);
}

bool CDialogConvertor::ownerBusy() const { return owner_ != nullptr && owner_->isBusy(); }

void CDialogConvertor::closeEvent(QCloseEvent* event) {
  if (ownerBusy()) {
    event->ignore();
    return;
  }
  QDialog::closeEvent(event);
}

void CDialogConvertor::reject() {
  if (!ownerBusy()) QDialog::reject();
}
