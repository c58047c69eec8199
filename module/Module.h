// Module.h: CModule, the host-facing base of every module, and the exported
// entry points that stand for the one module object of a library.
//
// Guarantees: the MODULE_INFO record is complete from construction on; every
// call into the host is skipped while no callback is installed; message 3004
// (start) creates the font manager and the date-time helper and attaches the
// host log, and an exception thrown there is reported to the host log once
// (type 1, level 5) and rethrown unchanged.
//
// REQUIRES: messages arrive on one thread at a time (the host's thread).
// Thread-safety: none of its own; the event map and the log take no lock.

#ifndef DATASTORE_MODULE_MODULE_H_
#define DATASTORE_MODULE_MODULE_H_

#include <QMap>
#include <QString>
#include <memory>
#include <string>

#include "HostBoundary.h"
#include "Log.h"

class CTranslateManager;
namespace font {
class Manager;
enum elementCode : int;
}  // namespace font
namespace Quendal {
class DateTime;
}  // namespace Quendal

#define MODULE_EXPORT __attribute__((visibility("default")))

class CModule {
 public:
  static constexpr std::uint32_t kModuleKind = 7;  // MODULE_INFO::kind
  // Compat: MODULE_INFO::extra is 20 until the module sets its own; hosts read it.
  static constexpr std::uint32_t kDefaultExtra = 20;
  static constexpr int kContextNameBytes = 20;  // bound of MODULE_INFO::contextName

  CModule(char const* name, unsigned number1, unsigned number2, unsigned number3,
          std::string const& moduleName, QString const& contextName);
  virtual ~CModule();
  CModule(const CModule&) = delete;
  CModule& operator=(const CModule&) = delete;

  // Stores the four values, in this order; may be called again.
  virtual void InitializeWrap(HostCallback callback, HostCallback callback2, void* context,
                              void* context2);
  // Copies the 2315 bytes of the record; returns 0, also for a null out.
  virtual int GetModuleInfoWrap(MODULE_INFO* out);
  // The framework's own messages; only 3004 does anything. Returns 0.
  virtual int ReceiveMessageWrap(void* param, unsigned int message, HostArg a, HostArg b);

  std::string const& GetModuleName() const { return moduleName_; }
  std::string const& GetModuleNameForLog() const { return moduleName_; }
  Log* GetLog() { return log_.get(); }
  Log const* GetLog() const { return log_.get(); }
  CTranslateManager* GetTranslateManager() const { return translateManager_.get(); }
  font::Manager* getFontManager() const { return fontManager_.get(); }
  // Forward to the font manager; a null family and the size unchanged before 3004.
  QString getFont(font::elementCode code) const;
  int getFontSize(int size) const;
  Quendal::DateTime* GetDateTime() { return dateTime_.get(); }
  MODULE_INFO const& info() const { return info_; }

  HostCallback callback() const { return callback_; }
  HostCallback callback2() const { return callback2_; }
  void* context() const { return context_; }
  void* context2() const { return context2_; }
  HostWord moduleHandle() const { return moduleHandle_; }
  void setModuleHandle(HostWord handle) { moduleHandle_ = handle; }

  // Translation (texts are looked up by key in the module's context).
  QString tr(char const* key, char const* comment = nullptr) const;
  QString tr(QString const& key, QString const& comment = QString()) const;
  void InsertTranslate(char const* context, char const* key, char const* text) const;

  // Events and interfaces, through the host.
  HostWord CreateEvent(QString const& name);
  void SubscribeEvent(QString const& name);
  void UnSubscribeEvent();
  int EmitEvent(QString const& name, VDEvent& event) const;
  HostWord getInterface(QString const& first, QString const& second, QString const& third) const;
  QMap<QString, HostWord> const& events() const { return events_; }

  // Asks the host for its languages and installs the font manager of the current one.
  void initFonts();
  // Puts "TZ=GST0" into the environment and applies it.
  static void SetTimeTz();

 protected:
  MODULE_INFO& mutableInfo() { return info_; }
  // Calls the host if a callback is installed; returns its result, or 0 without one.
  int CallHost(unsigned int message, HostArg a, HostArg b) const;

 private:
  void HandleStart();         // message 3004
  void ReportUnknownThrow();  // the catch-all's host log record

  MODULE_INFO info_{};                                   // what GetModuleInfo copies
  HostCallback callback_ = nullptr;                      // every call into the host goes here
  HostCallback callback2_;                               // stored, never called; not cleared
  void* context_ = nullptr;                              // first argument of every host call
  void* context2_ = nullptr;                             // passed on in the registration record
  HostWord moduleHandle_ = 0;                            // host-assigned at registration
  std::unique_ptr<Log> log_;                             // host log
  std::unique_ptr<font::Manager> fontManager_;           // null until 3004
  std::string moduleName_;                               // name used in the host log
  std::unique_ptr<Quendal::DateTime> dateTime_;          // null until 3004
  std::unique_ptr<CTranslateManager> translateManager_;  // the module's translation context
  QMap<QString, HostWord> events_;                       // created event names to host handles
};

// The library's module object: the first CModule built and not yet destroyed
// (null before and after). Exported, for hosts that ask a module for it.
MODULE_EXPORT CModule* GetModule();

// Copies a name into a fixed 8-bit host field: n bytes when n is at most
// fieldSize - 1, fieldSize bytes otherwise (no terminator then). REQUIRES: the
// field is zero-filled.
// Compat: a name that fills the field loses its terminator, as hosts expect of
// these records; readers bound it by the field (hostfield::Text).
void CopyHostName(char* field, int fieldSize, QString const& name);

#endif  // DATASTORE_MODULE_MODULE_H_
