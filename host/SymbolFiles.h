// SymbolFiles.h: the symbols a data folder holds, as their file names tell
// them. The module stores a symbol as <data>/<provider>/<name>_<period>_<code>.cjd,
// with '/', '\', '%' and control characters of the provider, the name and the
// code written as %XX.
//
// A name or a code may hold '_' itself: a file name is split at its last
// field that reads as a period (I<n>, D, W, M, Y) and has a code after it, as
// codes seldom hold '_' (a default code is letters and digits). Other file
// names, and folders without symbol files, are left out.
//
// Thread-safety: free functions without shared state.

#ifndef DATASTORE_HOST_SYMBOLFILES_H_
#define DATASTORE_HOST_SYMBOLFILES_H_

#include <QString>
#include <string>
#include <vector>

struct StoredSymbol {
  QString name;        // the symbol's name
  std::string period;  // as dshost writes it: "D", "I5"
  std::string code;    // 8-bit, as a request carries it
  QString path;        // of the file
};

struct ProviderSymbols {
  std::string provider;               // 8-bit, as a request carries it
  std::vector<StoredSymbol> symbols;  // in file name order, ignoring case
};

// The provider folders of dataFolder that hold symbol files, by name.
std::vector<ProviderSymbols> ListSymbols(const QString& dataFolder);
// Reads name, period and code from a file name; false for a name of another form.
bool ParseSymbolFileName(const QString& fileName, StoredSymbol* symbol);

#endif  // DATASTORE_HOST_SYMBOLFILES_H_
