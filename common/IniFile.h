// IniFile.h: inifiles, an INI reader and writer that keeps the whole file in
// its buffer and rewrites the whole file after every change.
//
// Guarantees:
//   - the file is read once, at construction; a file that cannot be read
//     leaves an empty buffer, so every read gives its default;
//   - every write changes the buffer and then rewrites the file ("wb+"); a
//     file that cannot be written keeps the change in memory only;
//   - a section is found by "[name]" anywhere in the file, even inside a
//     line, case-sensitively; names longer than 253 characters lose their last
//     3 (on a copy: the caller's string is never written);
//   - key names in the file are matched upper-cased and without the spaces
//     around them; the asked key is upper-cased but not trimmed;
//   - values are cut at the first CR or LF and trimmed of spaces;
//   - booleans are numbers: "0" is false, any other integer true, a word false;
//   - reads write at most `size` bytes of `out`, none when size < 1;
//   - lines written end in CR LF; every formatted text is at most 1023 bytes.
// No error text is produced and nothing is thrown.
//
// REQUIRES: text arguments are NUL-terminated or null (null reads as empty).
//
// Thread-safety: none. Callers serialise access, also across objects that
// open the same path.

#ifndef DATASTORE_COMMON_INIFILE_H_
#define DATASTORE_COMMON_INIFILE_H_

#include <string>

#include "AppendixData.h"

// Upper-cases text in place, byte by byte, with toupper. Returns text.
char* Strupr(char* text);
// Removes leading and trailing spaces (0x20 only) in place. Returns text.
char* delSpaceFromStr(char* text);

class inifiles : public appendixData {
 public:
  static constexpr int kInitialCapacity = 512;  // buffer capacity before loading
  static constexpr int kMaxPathLength = 4095;   // longer paths are not stored

  // Copies the path and loads the file; a missing file leaves the buffer empty.
  explicit inifiles(const char* path);
  inifiles(const inifiles&) = delete;
  inifiles& operator=(const inifiles&) = delete;

  // 0 when found (value in out), 1 when not (out holds the default text, at
  // most size - 1 bytes, terminated at out[size - 1]). Clears out[70] first
  // when size exceeds 70.
  int ReadString(const char* section, const char* key, const char* defaultText, char* out,
                 int size) const;
  // The value parsed as a decimal long (0 when it is no number); the default
  // when the key is missing.
  long ReadInteger(const char* section, const char* key, int defaultValue) const;
  double ReadFloat(const char* section, const char* key, double defaultValue) const;
  // ReadInteger with the default as 0 or 1; true for any non-zero result.
  bool ReadBool(const char* section, const char* key, bool defaultValue) const;

  // Replaces the key's line, or adds it as the section's last line, or adds
  // the section and the key at the end of the file. Always 0.
  int WriteString(const char* section, const char* key, const char* value);
  int WriteInteger(const char* section, const char* key, int value);   // "%d"
  int WriteBool(const char* section, const char* key, bool value);     // "0" or "1"
  int WriteFloat(const char* section, const char* key, double value);  // "%f"

  const char* path() const { return path_; }

  using appendixData::insertData;
  using appendixData::replaceData;

 protected:
  // 0 when the key is in the section; its value goes to out.
  int findSection(const char* section, const char* key, char* out, int size) const;
  // 0 when the line's name matches the key; with wantValue the value goes to out.
  static int findNameParam(const char* line, const char* key, char* out, int size, bool wantValue);
  // The work of WriteString; 1 when the buffer could not be changed.
  int writeSection(const char* section, const char* key, const char* value);
  // Appends "[section]\r\n" (after CR LF when the buffer does not end in one), saves.
  int insertSection(const char* section);
  // Inserts "key=value\r\n" at at (after CR LF when the buffer does not end in one), saves.
  int insertData(int at, const char* key, const char* value);
  // Replaces bytes [from, to) with "key=value\r\n", saves.
  int replaceData(int from, int to, const char* key, const char* value);
  // True when the buffer's last two bytes are CR LF.
  bool iScrlf() const;
  // Writes the used bytes to the path; 1 when the file cannot be written.
  int copyToFile() const;
  // Replaces the buffer with the file's bytes; 1 when it cannot be read.
  int copyToBuffer();

 private:
  // Finds "[name]" from the start of the buffer: 0 with its offset and end.
  int findHeader(const std::string& name, int* headerPos, int* headerEnd) const;
  // Puts the formatted text in place of bytes [from, to), then saves.
  int changeAndSave(int from, int to, const char* text);

  char path_[kMaxPathLength + 1] = {};  // the file, empty when the path was too long
};

#endif  // DATASTORE_COMMON_INIFILE_H_
