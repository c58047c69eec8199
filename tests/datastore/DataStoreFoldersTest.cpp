// Folder helpers of the data store: the path walk that makes folders, and the
// folder lookups that need a module.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "DataStoreModule.h"
#include "HostFolders.h"

namespace {

// Every missing prefix up to a "/" is made, then the path itself; a final
// "/" ends the walk. A relative path without a later "/" is made as it is.
TEST(MakePathTest, MakesEveryMissingFolderOfThePath) {
  QTemporaryDir dir;
  const QString root = dir.path();
  EXPECT_TRUE(CDataStoreModule::MakePath(root + "/a/b/c/"));
  EXPECT_TRUE(QFileInfo(root + "/a/b/c").isDir());
  EXPECT_TRUE(CDataStoreModule::MakePath(root + "/x/y"));
  EXPECT_TRUE(QFileInfo(root + "/x/y").isDir());

  QFile file(root + "/file");
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  EXPECT_FALSE(CDataStoreModule::MakePath(root + "/file/sub"));  // a file is in the way

  const QString current = QDir::currentPath();
  ASSERT_TRUE(QDir::setCurrent(root));
  EXPECT_TRUE(CDataStoreModule::MakePath("plain"));
  QDir::setCurrent(current);
  EXPECT_TRUE(QFileInfo(root + "/plain").isDir());
}

TEST(HostFoldersTest, NoModuleNoFolder) {
  EXPECT_EQ(GetPathByFolderType<CDataStoreModule>(nullptr, VD_FOLDER_DATA), QString());
}

}  // namespace
