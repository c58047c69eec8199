// DialogConvertor.h: CDialogConvertor, the import dialog's window. Its
// children are built and driven by its CConvertor.
//
// Guarantees: while the owner reports an import in progress the dialog cannot
// be closed (close requests are ignored, Escape does nothing); otherwise it
// closes as a QDialog does.
// REQUIRES: a QApplication; the owner, when given, outlives the dialog or
// deletes it first (CConvertor does).
// Thread-safety: none (a widget).

#ifndef DATASTORE_IMPORT_DIALOGCONVERTOR_H_
#define DATASTORE_IMPORT_DIALOGCONVERTOR_H_

#include <QDialog>

class CConvertor;
class QCloseEvent;

class CDialogConvertor : public QDialog {
  Q_OBJECT

 public:
  // name becomes the object name (local 8-bit encoding); modal sets the
  // dialog's modality.
  CDialogConvertor(CConvertor* owner, QWidget* parent, const char* name, bool modal,
                   Qt::WindowFlags flags);

  CConvertor* owner() const { return owner_; }

 public slots:
  void reject() override;

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  bool ownerBusy() const;

  CConvertor* owner_;  // the import that built this dialog; may be null
};

#endif  // DATASTORE_IMPORT_DIALOGCONVERTOR_H_
