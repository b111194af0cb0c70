/*
 * indgen_quote.cpp - quoting, escaping and formatting; the escape tables
 * are in indgen_quote.h.
 */
#include "indgen_quote.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

namespace {

/* ---- Escapes ---------------------------------------------------------- */

/* The letter that escapes c, or 0 when c is written as it stands. */
char EscapeLetter(unsigned char c, bool escape_controls) {
  switch (c) {
    case '\\':
    case '"':
    case '\'':
      return static_cast<char>(c);
    case '\n':
      return escape_controls ? 'n' : 0;
    case '\r':
      return escape_controls ? 'r' : 0;
    case '\t':
      return escape_controls ? 't' : 0;
    case 1:
    case 2:
    case 3:
      return escape_controls ? static_cast<char>('0' + c) : 0;
    default:
      return 0;
  }
}

bool IsOctalDigit(char c) { return c >= '0' && c <= '7'; }

/* The value of a hexadecimal digit, or -1. */
int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/* The character that the letter behind a backslash stands for, for the
 * escapes of one letter. */
char SimpleEscape(char letter) {
  switch (letter) {
    case 'a': return 7;
    case 'b': return 8;
    case 'f': return 12;
    case 'n': return 10;
    case 'r': return 13;
    case 't': return 9;
    case 'v': return 11;
    default: return letter;  // \\ \" \' \? and every other character
  }
}

/* ---- Formatter state -------------------------------------------------- */

FILE *fdevnull;        // the null device, opened on first use, never closed
char *tmpbuf;          // scratch for texts that don't fit, never freed
size_t tmpbuflen;      // its size in bytes

void GrowTmpbuf(size_t size) {
  if (tmpbuflen >= size) return;
  char *grown = static_cast<char *>(realloc(tmpbuf, size));
  if (grown == nullptr) gen_out_of_memory();
  tmpbuf = grown;
  tmpbuflen = size;
}

}  // namespace

/* ---- Quoting -------------------------------------------------------------- */

extern "C" char *xquotify_string(const char *s, int quote, int escape_controls) {
  if (s == nullptr) return nullptr;
  size_t length = 0;
  for (const char *p = s; *p != '\0'; p++)
    length += EscapeLetter(static_cast<unsigned char>(*p), escape_controls) != 0 ? 2 : 1;
  char *result = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(length + 3)));
  char *out = result;
  if (quote != 0) *out++ = static_cast<char>(quote);
  for (const char *p = s; *p != '\0'; p++) {
    char letter = EscapeLetter(static_cast<unsigned char>(*p), escape_controls);
    if (letter != 0) {
      *out++ = '\\';
      *out++ = letter;
    } else {
      *out++ = *p;
    }
  }
  if (quote != 0) *out++ = static_cast<char>(quote);
  return result;
}

extern "C" char *gen_quotify_string(const char *s) { return xquotify_string(s, '"', 0); }

extern "C" char *gen_single_quotify_string(const char *s) {
  return xquotify_string(s, '\'', 0);
}

extern "C" char *gen_escapify_string(const char *s) { return xquotify_string(s, 0, 1); }

/* ---- Unquoting -------------------------------------------------------------- */

extern "C" signed char gen_unescape_one_char(const char **p) {
  const char *at = *p;
  if (*at == '\0') return 0;
  if (*at != '\\') {
    *p = at + 1;
    return static_cast<signed char>(*at);
  }
  at++;  // behind the backslash
  char letter = *at;
  if (letter == '\0') {
    *p = at;
    return 0;
  }
  at++;
  int value;
  if (letter >= '0' && letter <= '3') {
    value = letter - '0';
    for (int more = 0; more < 2 && IsOctalDigit(*at); more++) value = value * 8 + (*at++ - '0');
  } else if (letter == 'x') {
    value = 0;
    for (int digits = 0; digits < 2 && HexValue(*at) >= 0; digits++)
      value = value * 16 + HexValue(*at++);
  } else {
    value = static_cast<unsigned char>(SimpleEscape(letter));
  }
  *p = at;
  return static_cast<signed char>(value & 0xFF);
}

extern "C" char *xunquotify_string(const char *s, int quote, int unescape) {
  if (s == nullptr) return nullptr;
  char *result = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(strlen(s) + 1)));
  char *out = result;
  const char *p = s;
  while (*p != '\0') {
    if (quote != 0 && *p == static_cast<char>(quote)) {
      p++;
      continue;
    }
    if (!unescape) {
      *out++ = *p++;
      continue;
    }
    signed char c = gen_unescape_one_char(&p);
    if (c == 0) break;
    *out++ = static_cast<char>(c);
  }
  return result;
}

extern "C" char *gen_dequotify_string(const char *s) {
  if (s == nullptr) return nullptr;
  int quote = (s[0] == '\'' || s[0] == '"') ? s[0] : 0;
  return xunquotify_string(s, quote, 1);
}

extern "C" char *gen_single_dequotify_string(const char *s) {
  return xunquotify_string(s, '\'', 1);
}

extern "C" char *gen_double_dequotify_string(const char *s) {
  return xunquotify_string(s, '"', 1);
}

extern "C" char *gen_unescapify_string(const char *s) { return xunquotify_string(s, 0, 1); }

/* ---- File names for a shell ------------------------------------------------ */

extern "C" int needs_shellescaping(const char *name) {
  return name != nullptr && strpbrk(name, " \"") != nullptr;
}

extern "C" char *gen_shellescapify_filename(const char *name) {
  if (!needs_shellescaping(name)) return gen_copy(name);
  size_t length = strlen(name);
  char *result = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(length + 3)));
  result[0] = '\'';
  memcpy(result + 1, name, length);
  result[length + 1] = '\'';
  return result;
}

extern "C" char *gen_unshellescapify_filename(const char *name) {
  if (name == nullptr) return nullptr;
  if (name[0] == '"') return gen_dequotify_string(name);
  if (name[0] != '\'') return gen_copy(name);
  size_t length = strlen(name + 1);
  if (length > 0 && name[length] == '\'') length--;
  return gen_copyn(name + 1, static_cast<int>(length));
}

/* ---- Other ------------------------------------------------------------------- */

extern "C" char *gen_binary_to_string(const void *data, unsigned size) {
  static const char kDigits[] = "0123456789abcdef";
  if (size > (UINT_MAX - 1) / 2) return nullptr;
  char *result = static_cast<char *>(gen_alloc(1, 2 * size + 1));
  const unsigned char *bytes = static_cast<const unsigned char *>(data);
  for (unsigned k = 0; k < size; k++) {
    result[2 * k] = kDigits[bytes[k] & 0xF];
    result[2 * k + 1] = kDigits[bytes[k] >> 4];
  }
  return result;
}

extern "C" const char *gen_devnullpathname(void) { return "/dev/null"; }

/* ---- Formatting ---------------------------------------------------------------- */

extern "C" int gen_Xprintflen(const char *format, va_list args) {
  if (fdevnull == nullptr) fdevnull = gen_fopen(gen_devnullpathname(), "wb");
  // Without a null device the count comes from the library's own measure.
  if (fdevnull == nullptr) return vsnprintf(nullptr, 0, format, args);
  return vfprintf(fdevnull, format, args);
}

extern "C" int gen_vsnprintf(char *buf, size_t size, const char *format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  int n = gen_Xprintflen(format, measure);
  va_end(measure);
  if (size == 0 || n < 0) return n;
  size_t needed = static_cast<size_t>(n) + 1;
  if (needed < size) {
    vsprintf(buf, format, args);
    return n;
  }
  GrowTmpbuf(needed);
  vsprintf(tmpbuf, format, args);
  memcpy(buf, tmpbuf, size);
  return n;
}

extern "C" int gen_snprintf(char *buf, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  int n = gen_vsnprintf(buf, size, format, args);
  va_end(args);
  return n;
}

extern "C" char *gen_vmsprintf(const char *format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  int n = gen_vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  if (n < 0) return nullptr;
  char *result = static_cast<char *>(malloc(static_cast<size_t>(n) + 1));
  if (result == nullptr) gen_out_of_memory();
  vsprintf(result, format, args);
  return result;
}

extern "C" char *gen_msprintf(const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *result = gen_vmsprintf(format, args);
  va_end(args);
  return result;
}
