// ProviderPath.h: joining provider folders and making file-name parts that
// stay inside their folder.
//
// Thread-safety: pure functions.

#ifndef DATASTORE_STORAGE_PROVIDERPATH_H_
#define DATASTORE_STORAGE_PROVIDERPATH_H_

#include <QByteArray>
#include <QString>

// Appends "/" unless path ends in one, then the provider unless path already
// ends in provider + "/". A path that already ends in the provider folder comes
// back with its final "/"; any other comes back without one.
void AddProvider(QString& path, QString const& provider);

// The text with '/', '\\', '%' and control characters written as %XX; every
// other character is kept.
QString EscapeFileNamePart(QString const& text);
// The same for 8-bit text in the local encoding; bytes that do not decode in
// it are escaped one by one, so two texts never share a file name.
QString EscapeFileNameBytes(QByteArray const& text);

// The provider as exactly one folder level: escaped as above; empty for "",
// "." and "..", which name no folder of their own.
QString ProviderFolderName(QString const& provider);

#endif  // DATASTORE_STORAGE_PROVIDERPATH_H_
