// The INI store on real files: lookup rules, values, the caller's buffer, and
// the exact bytes that writes leave in the file.

#include "IniFile.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

class IniFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "inifile-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    path_ = dir_ + "/pelto.cfg";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  void Store(const std::string& bytes) const { std::ofstream(path_, std::ios::binary) << bytes; }
  std::string Stored() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // The value as a fresh object reads it from the file, or "<none>".
  std::string Read(const char* section, const char* key) const {
    inifiles ini(path_.c_str());
    char out[256];
    return ini.ReadString(section, key, "", out, sizeof out) == 0 ? out : "<none>";
  }

  std::string dir_;
  std::string path_;
};

}  // namespace

TEST_F(IniFileTest, MissingFileReadsAsEmptyAndAnUnwritableOneKeepsChangesInMemory) {
  inifiles ini(path_.c_str());
  EXPECT_TRUE(ini.IsEmpty());
  EXPECT_EQ(ini.ReadInteger("DATASTORE", "EnableWrite", 7), 7);
  EXPECT_TRUE(ini.ReadBool("DATASTORE", "EnableWrite", true));
  EXPECT_DOUBLE_EQ(ini.ReadFloat("DATASTORE", "Rate", 1.25), 1.25);
  EXPECT_FALSE(std::filesystem::exists(path_));

  inifiles unwritable((dir_ + "/no-such-folder/pelto.cfg").c_str());
  EXPECT_EQ(unwritable.WriteInteger("S", "k", 3), 0);
  EXPECT_EQ(unwritable.ReadInteger("S", "k", 0), 3);
}

TEST_F(IniFileTest, ValuesAreTrimmedAndBoolsAreNumbers) {
  Store(
      "[S]\r\npath =  \t~/my data  \r\neq=a = b\r\nyes=yes\r\ntwo=2\r\nzero=0\r\n"
      "mixed=12abc\r\nlast= 2.5");
  EXPECT_EQ(Read("S", "PATH"), "\t~/my data");  // only spaces are trimmed
  EXPECT_EQ(Read("S", "eq"), "a = b");
  inifiles ini(path_.c_str());
  EXPECT_FALSE(ini.ReadBool("S", "yes", true));
  EXPECT_TRUE(ini.ReadBool("S", "two", false));
  EXPECT_FALSE(ini.ReadBool("S", "zero", true));
  EXPECT_EQ(ini.ReadInteger("S", "mixed", 5), 12);
  EXPECT_DOUBLE_EQ(ini.ReadFloat("S", "last", 0), 2.5);
}

TEST_F(IniFileTest, KeysIgnoreCaseAndSpacesButSectionHeadersMatchExactlyAnywhere) {
  Store("note=[S]\r\n  keY  = 1\r\n[T] b=2\r\n[U]\r\n[V]\r\nc=3\r\n[datastore]\r\nd=4\r\n");
  EXPECT_EQ(Read("S", "Key"), "1");
  EXPECT_EQ(Read("S", " Key"), "<none>");  // the asked key is not trimmed
  EXPECT_EQ(Read("T", "b"), "2");          // the rest of the header line is read too
  EXPECT_EQ(Read("S", "b"), "<none>");     // the next section ends it
  EXPECT_EQ(Read("U", "c"), "<none>");
  EXPECT_EQ(Read("DATASTORE", "d"), "<none>");
}

TEST_F(IniFileTest, ReadNeverWritesBehindTheCallersBuffer) {
  std::string const fallback(100, 'd');
  Store("[S]\r\nk=" + std::string(100, 'v') + "\r\n");
  inifiles ini(path_.c_str());
  for (int size : {1, 5, 70, 71}) {
    for (const char* key : {"k", "missing"}) {
      char out[88];
      std::memset(out, '#', sizeof out);
      ini.ReadString("S", key, fallback.c_str(), out, size);
      EXPECT_EQ(std::strlen(out), static_cast<std::size_t>(size - 1)) << size << key;
      EXPECT_EQ(std::string(out + size, sizeof out - size), std::string(sizeof out - size, '#'))
          << size << key;
    }
  }
  char untouched[] = "###";
  EXPECT_EQ(ini.ReadString("S", "k", "d", untouched, 0), 0);
  EXPECT_STREQ(untouched, "###");
}

TEST_F(IniFileTest, WriteAddsWithCrLfChosenByTheBuffersEnd) {
  // The file before, the section written, the file after writing k=v.
  const char* const cases[][3] = {
      {"", "B", "\r\n[B]\r\nk=v\r\n"},  // an empty file has no CR LF at its end
      {"[A]\r\nx=1\r\n", "B", "[A]\r\nx=1\r\n[B]\r\nk=v\r\n"},
      {"[A]\r\nx=1", "B", "[A]\r\nx=1\r\n[B]\r\nk=v\r\n"},
      {"[A]\r\nx=1", "A", "[A]\r\nx=1\r\nk=v\r\n"},  // a new key becomes the section's last line
      {"[A]\r\nx=1\r\n[B]\r\ny=2\r\n", "A", "[A]\r\nx=1\r\nk=v\r\n[B]\r\ny=2\r\n"},
      {"[A]\r\n[B]\r\ny=2", "A",
       "[A]\r\n\r\nk=v\r\n[B]\r\ny=2"},  // the end decides, not the insertion point
      {"[A]", "A", "[A]\r\nk=v\r\n"},
      {"[A]\r\nk=1", "A", "[A]\r\nk=v\r\n"},
      // A bare header at the end but not at the start: its insertion point lies
      // beyond the buffer, so nothing is written.
      {"x=1\r\n[A]", "A", "x=1\r\n[A]"},
  };
  for (const auto& [before, section, after] : cases) {
    Store(before);
    EXPECT_EQ(inifiles(path_.c_str()).WriteString(section, "k", "v"), 0);
    EXPECT_EQ(Stored(), after) << before;
  }
}

TEST_F(IniFileTest, WritingAKeyReplacesItsWholeLineAndRewritesTheFile) {
  Store("[S]\r\n  KEY = old value \r\nnext=1\r\n");
  inifiles ini(path_.c_str());
  ini.WriteString("S", "key", "new");
  EXPECT_EQ(Stored(), "[S]\r\nkey=new\r\nnext=1\r\n");
  ini.WriteFloat("S", "next", 2.5);
  EXPECT_EQ(Stored(), "[S]\r\nkey=new\r\nnext=2.500000\r\n");
  ini.WriteBool("S", "KEY", true);
  ini.WriteInteger("S", "n", -42);
  EXPECT_EQ(Stored(), "[S]\r\nKEY=1\r\nnext=2.500000\r\nn=-42\r\n");
}

TEST_F(IniFileTest, LongSectionNamesLoseTheirLastThreeCharacters) {
  std::string const name(300, 's');
  inifiles ini(path_.c_str());
  ini.WriteString(name.c_str(), "k", "v");
  EXPECT_EQ(Stored(), "\r\n[" + std::string(297, 's') + "]\r\nk=v\r\n");
  EXPECT_EQ(Read(name.c_str(), "k"), "v");
}
