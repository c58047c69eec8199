// IniFile.cpp: the INI reader and writer.

#include "IniFile.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kMaxSectionLength = 253;  // longer names are cut
constexpr std::size_t kSectionCut = 3;          // bytes a long name loses
constexpr int kHeaderBytes = 256;               // "[name]": at most 255 bytes
constexpr int kLineBytes = 256;                 // a line read: at most 255 bytes
constexpr int kNameBytes = 256;                 // a key name: at most 255 bytes
constexpr int kClearedByte = 70;                // ReadString clears this byte of out
constexpr int kNumberBytes = 100;               // numbers formatted and read back
constexpr int kBoolBytes = 20;                  // a bool formatted for writing
constexpr int kFormattedBytes = 1024;           // every formatted header or line
constexpr char kSectionOpen = '[';
constexpr char kSeparator = '=';
constexpr char kLineBreaks[] = "\r\n";
constexpr char kSpaces[] = " ";  // the only character trimmed

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

// The section name that is searched and written.
std::string SectionName(const char* section) {
  std::string name(OrEmpty(section));
  if (name.size() > kMaxSectionLength) name.resize(name.size() - kSectionCut);
  return name;
}

// Copies at most size - 1 bytes of text and terminates at out[size - 1].
void CopyText(char* out, int size, const char* text) {
  std::strncpy(out, text, size - 1);
  out[size - 1] = '\0';
}

}  // namespace

char* Strupr(char* text) {
  for (char* p = text; p != nullptr && *p != '\0'; ++p) {
    *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
  }
  return text;
}

char* delSpaceFromStr(char* text) {
  if (text == nullptr) return text;
  std::size_t length = std::strlen(text);
  while (length > 0 && text[length - 1] == kSpaces[0]) --length;
  text[length] = '\0';
  std::size_t const lead = std::strspn(text, kSpaces);
  std::memmove(text, text + lead, length - lead + 1);
  return text;
}

inifiles::inifiles(const char* path) : appendixData(kInitialCapacity) {
  const char* const given = OrEmpty(path);
  if (std::strlen(given) <= kMaxPathLength) std::strcpy(path_, given);
  copyToBuffer();
}

int inifiles::ReadString(const char* section, const char* key, const char* defaultText, char* out,
                         int size) const {
  if (out == nullptr) size = 0;
  if (size > kClearedByte) out[kClearedByte] = '\0';
  if (findSection(section, key, out, size) == 0) return 0;
  if (size > 0) CopyText(out, size, OrEmpty(defaultText));
  return 1;
}

long inifiles::ReadInteger(const char* section, const char* key, int defaultValue) const {
  char fallback[kNumberBytes];
  std::snprintf(fallback, sizeof fallback, "%d", defaultValue);
  char text[kNumberBytes];
  if (ReadString(section, key, fallback, text, sizeof text) != 0) return defaultValue;
  return std::strtol(text, nullptr, 10);
}

double inifiles::ReadFloat(const char* section, const char* key, double defaultValue) const {
  char fallback[kNumberBytes];
  std::snprintf(fallback, sizeof fallback, "%f", defaultValue);
  char text[kNumberBytes];
  if (ReadString(section, key, fallback, text, sizeof text) != 0) return defaultValue;
  return std::strtod(text, nullptr);
}

bool inifiles::ReadBool(const char* section, const char* key, bool defaultValue) const {
  return ReadInteger(section, key, defaultValue ? 1 : 0) != 0;
}

int inifiles::WriteString(const char* section, const char* key, const char* value) {
  writeSection(section, key, value);
  return 0;
}

int inifiles::WriteInteger(const char* section, const char* key, int value) {
  char text[kNumberBytes];
  std::snprintf(text, sizeof text, "%d", value);
  return WriteString(section, key, text);
}

int inifiles::WriteBool(const char* section, const char* key, bool value) {
  char text[kBoolBytes];
  std::snprintf(text, sizeof text, "%d", value ? 1 : 0);
  return WriteString(section, key, text);
}

int inifiles::WriteFloat(const char* section, const char* key, double value) {
  char text[kNumberBytes];
  std::snprintf(text, sizeof text, "%f", value);
  return WriteString(section, key, text);
}

int inifiles::findSection(const char* section, const char* key, char* out, int size) const {
  int headerPos = 0;
  int next = 0;
  if (findHeader(SectionName(section), &headerPos, &next) != 0) return 1;
  char line[kLineBytes];
  // The first line read is the rest of the header's own line.
  while (findOneStr(next, line, kLineBytes) == 0) {
    if (line[0] == kSectionOpen) return 1;
    if (findNameParam(line, key, out, size, true) == 0) return 0;
  }
  return 1;
}

int inifiles::findNameParam(const char* line, const char* key, char* out, int size,
                            bool wantValue) {
  const char* const separator = std::strchr(OrEmpty(line), kSeparator);
  if (separator == nullptr) return 1;
  char name[kNameBytes];
  std::size_t const nameLength = std::min<std::size_t>(separator - line, kNameBytes - 1);
  std::memcpy(name, line, nameLength);
  name[nameLength] = '\0';
  delSpaceFromStr(Strupr(name));
  char asked[kNameBytes];
  CopyText(asked, kNameBytes, OrEmpty(key));
  Strupr(asked);
  if (std::strcmp(name, asked) != 0) return 1;
  if (wantValue && out != nullptr && size > 0) {
    std::strncpy(out, separator + 1, size);
    out[size - 1] = '\0';
    out[std::strcspn(out, kLineBreaks)] = '\0';
    delSpaceFromStr(out);
  }
  return 0;
}

int inifiles::writeSection(const char* section, const char* key, const char* value) {
  std::string const name = SectionName(section);
  int headerPos = 0;
  int headerEnd = 0;
  if (findHeader(name, &headerPos, &headerEnd) != 0) {
    int const before = usedLength();
    insertSection(name.c_str());           // a failed save keeps the header in memory
    if (usedLength() == before) return 1;  // the header could not be added
    return insertData(usedLength(), key, value);
  }
  // The start before the first line is kept only when nothing at all follows
  // the header; for a header that is not at the start of the buffer it lies
  // beyond the end, and the insert refuses it.
  int lineStart = headerPos + headerEnd;
  int next = headerEnd;
  char line[kLineBytes];
  for (int start = next; findOneStr(next, line, kLineBytes) == 0; start = next) {
    if (line[0] == kSectionOpen) return insertData(start, key, value);
    if (findNameParam(line, key, nullptr, 0, false) == 0) {
      return replaceData(start, next, key, value);
    }
    lineStart = next;
  }
  return insertData(lineStart, key, value);
}

int inifiles::insertSection(const char* section) {
  char text[kFormattedBytes];
  std::snprintf(text, sizeof text, iScrlf() ? "[%s]\r\n" : "\r\n[%s]\r\n", OrEmpty(section));
  return changeAndSave(usedLength(), usedLength(), text);
}

int inifiles::insertData(int at, const char* key, const char* value) {
  char text[kFormattedBytes];
  std::snprintf(text, sizeof text, iScrlf() ? "%s=%s\r\n" : "\r\n%s=%s\r\n", OrEmpty(key),
                OrEmpty(value));
  return changeAndSave(at, at, text);
}

int inifiles::replaceData(int from, int to, const char* key, const char* value) {
  char text[kFormattedBytes];
  std::snprintf(text, sizeof text, "%s=%s\r\n", OrEmpty(key), OrEmpty(value));
  return changeAndSave(from, to, text);
}

bool inifiles::iScrlf() const {
  int const used = usedLength();
  return (*this)[used - 2] == '\r' && (*this)[used - 1] == '\n';
}

int inifiles::copyToFile() const {
  std::FILE* const file = std::fopen(path_, "wb+");
  if (file == nullptr) return 1;
  std::size_t const used = usedLength();
  bool const written = used == 0 || std::fwrite(data(), 1, used, file) == used;
  bool const closed = std::fclose(file) == 0;
  return written && closed ? 0 : 1;
}

int inifiles::copyToBuffer() {
  std::FILE* const file = std::fopen(path_, "rb");
  if (file == nullptr) return 1;
  setNewOffset(0);
  long size = -1;
  if (std::fseek(file, 0, SEEK_END) == 0) size = std::ftell(file);
  bool const fits = size >= 0 && size <= INT_MAX && std::fseek(file, 0, SEEK_SET) == 0 &&
                    setNewLenBuf(static_cast<int>(size)) == 0;
  if (fits && size > 0) setNewOffset(static_cast<int>(std::fread(writableData(), 1, size, file)));
  std::fclose(file);
  return fits ? 0 : 1;
}

int inifiles::findHeader(const std::string& name, int* headerPos, int* headerEnd) const {
  char header[kHeaderBytes];
  std::snprintf(header, sizeof header, "[%s]", name.c_str());
  int pos = 0;
  if (findBytes(pos, header, static_cast<int>(std::strlen(header)), headerEnd) != 0) return 1;
  *headerPos = pos;
  return 0;
}

int inifiles::changeAndSave(int from, int to, const char* text) {
  if (appendixData::replaceData(from, to, text) != 0) return 1;
  return copyToFile();
}
