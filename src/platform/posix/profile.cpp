// GetPrivateProfileStringA and GetPrivateProfileIntA for POSIX, reading the
// same INI files with the same answers: case-insensitive section and key
// names, trimmed names and values, one pair of surrounding quotes removed,
// ';' comment lines, the first matching section and key winning. The file
// is streamed line by line through a stack buffer; nothing is allocated.
#include <cstring>

#include "platform/platform.h"

namespace qv::platform {

namespace {

// Longer lines are cut here; no value the library reads comes near it.
constexpr size_t kLineSize = 4096;

struct Span {
  const char* text;
  size_t length;
};

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

Span Trim(const char* text, size_t length) {
  while (length > 0 && IsBlank(*text)) {
    ++text;
    --length;
  }
  while (length > 0 && IsBlank(text[length - 1])) --length;
  return {text, length};
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameName(Span a, Span b) {
  if (a.length != b.length) return false;
  for (size_t i = 0; i < a.length; ++i) {
    if (Lower(a.text[i]) != Lower(b.text[i])) return false;
  }
  return true;
}

// Reads one line into `line` (NUL-terminated, without the rest of an
// over-long line). False at end of file.
bool ReadLine(std::FILE* file, char* line, size_t size) {
  if (!std::fgets(line, static_cast<int>(size), file)) return false;
  size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] != '\n') {
    int c;
    while ((c = std::fgetc(file)) != EOF && c != '\n') {
    }
  }
  return true;
}

enum class Lookup { kMissing, kNoValue, kFound };

// Finds section/key in the file; on kFound the value span points into
// `line`.
Lookup FindValue(std::FILE* file, Span section, Span key, char* line, Span* value) {
  bool in_section = false;
  bool first_line = true;
  while (ReadLine(file, line, kLineSize)) {
    const char* start = line;
    if (first_line && std::strncmp(start, "\xEF\xBB\xBF", 3) == 0) start += 3;  // UTF-8 BOM
    first_line = false;
    Span text = Trim(start, std::strlen(start));
    if (text.length == 0 || text.text[0] == ';') continue;
    if (text.text[0] == '[') {
      const char* close =
          static_cast<const char*>(std::memchr(text.text, ']', text.length));
      if (!close) continue;  // not a section header; the line is ignored
      // Only the first section of that name is searched.
      if (in_section) return Lookup::kMissing;
      in_section = SameName(Trim(text.text + 1, static_cast<size_t>(close - text.text - 1)),
                            section);
      continue;
    }
    if (!in_section) continue;
    const char* equals = static_cast<const char*>(std::memchr(text.text, '=', text.length));
    Span name = Trim(text.text, equals ? static_cast<size_t>(equals - text.text) : text.length);
    if (!SameName(name, key)) continue;
    if (!equals) return Lookup::kNoValue;
    *value = Trim(equals + 1, text.length - static_cast<size_t>(equals + 1 - text.text));
    return Lookup::kFound;
  }
  return Lookup::kMissing;
}

uint32_t CopyOut(Span value, char* out, uint32_t out_size) {
  if (value.length >= 2 && (value.text[0] == '"' || value.text[0] == '\'') &&
      value.text[value.length - 1] == value.text[0]) {
    value.text += 1;
    value.length -= 2;
  }
  size_t count = value.length < out_size - 1 ? value.length : out_size - 1;
  std::memcpy(out, value.text, count);
  out[count] = '\0';
  return static_cast<uint32_t>(count);
}

bool IsDigitIn(char c, unsigned base, unsigned* digit) {
  unsigned d;
  if (c >= '0' && c <= '9') {
    d = static_cast<unsigned>(c - '0');
  } else if (Lower(c) >= 'a' && Lower(c) <= 'z') {
    d = static_cast<unsigned>(Lower(c) - 'a' + 10);
  } else {
    return false;
  }
  if (d >= base) return false;
  *digit = d;
  return true;
}

}  // namespace

uint32_t ProfileString(const char* section, const char* key, const char* default_value,
                       char* out, uint32_t out_size, const char* windows_path) {
  if (!out || out_size == 0) return 0;
  // Windows drops trailing blanks of the default.
  const char* fallback = default_value ? default_value : "";
  Span result = {fallback, std::strlen(fallback)};
  while (result.length > 0 && IsBlank(result.text[result.length - 1])) --result.length;

  char line[kLineSize];
  std::FILE* file = (section && key) ? OpenFile(windows_path, "rb") : nullptr;
  if (file) {
    Span value;
    if (FindValue(file, Trim(section, std::strlen(section)), Trim(key, std::strlen(key)), line,
                  &value) == Lookup::kFound) {
      result = value;  // points into `line`, which outlives the file
    }
    std::fclose(file);
  }
  return CopyOut(result, out, out_size);
}

uint32_t ProfileInt(const char* section, const char* key, int32_t default_value,
                    const char* windows_path) {
  char text[32];
  if (ProfileString(section, key, "", text, sizeof text, windows_path) == 0) {
    return static_cast<uint32_t>(default_value);
  }
  // Windows' string-to-integer conversion with base 0: blanks, a sign, an
  // optional 0x / 0o / 0b prefix, then digits up to the first non-digit.
  // Text with no digits is 0; overflow wraps.
  const char* p = text;
  while (*p && IsBlank(*p)) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  unsigned base = 10;
  if (p[0] == '0') {
    char marker = Lower(p[1]);
    if (marker == 'x') base = 16;
    if (marker == 'o') base = 8;
    if (marker == 'b') base = 2;
    if (base != 10) p += 2;
  }
  uint32_t result = 0;
  unsigned digit;
  while (IsDigitIn(*p, base, &digit)) {
    result = result * base + digit;
    ++p;
  }
  return negative ? 0u - result : result;
}

}  // namespace qv::platform
