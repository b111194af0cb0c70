/*
 * indgen_string.cpp - character classes, comparison, searches, case mapping
 * and the copy and join families, including the joiner of file names.  The
 * tokeniser, the classes of source-text characters and the hash live in
 * indgen_string_scan.cpp.  Contracts: indgen_string.h.
 */
#include "indgen_string.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "indgen_canon.h"
#include "indgeninit.h"

/* ======================================================================
 * Private helpers
 * ====================================================================== */

namespace {

unsigned char byte_of(int c) { return static_cast<unsigned char>(c); }

bool is_ascii_letter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_ascii_digit(unsigned char c) { return c >= '0' && c <= '9'; }

/* A character folded to lower case, as a signed 8-bit value. */
int fold(char c) { return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : static_cast<signed char>(c); }

/* A new heap string of length bytes, copied from text (which need not be
 * terminated). */
char *new_string(const char *text, size_t length) {
  char *copy = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(length + 1)));
  memcpy(copy, text, length);
  return copy;
}

/* A new heap string holding the pieces in order; null counts as "". */
char *join(std::initializer_list<const char *> pieces) {
  size_t length = 0;
  for (const char *piece : pieces)
    if (piece != nullptr) length += strlen(piece);
  char *result = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(length + 1)));
  char *end = result;
  for (const char *piece : pieces) {
    if (piece == nullptr) continue;
    size_t piece_length = strlen(piece);
    memcpy(end, piece, piece_length);
    end += piece_length;
  }
  return result;
}

bool is_empty(const char *s) { return s == nullptr || s[0] == '\0'; }

/* Whether the n bytes at s equal x, folded. */
bool equal_folded(const char *s, const char *x, size_t n) {
  for (size_t i = 0; i < n; i++)
    if (fold(s[i]) != fold(x[i])) return false;
  return true;
}

/* Frees old and passes result on: the tail of every 'f' function. */
char *free_first(char *old, char *result) {
  gen_free(old);
  return result;
}

} // namespace

/* ======================================================================
 * Character classes
 * ====================================================================== */

extern "C" int gen_isspace(int c) {
  unsigned char b = byte_of(c);
  return b == ' ' || b == '\t' || b == '\n' || b == '\r' || b == '\f';
}

extern "C" int gen_isalnum(int c) {
  unsigned char b = byte_of(c);
  return is_ascii_letter(b) || is_ascii_digit(b);
}

extern "C" int gen_isupper(int c) {
  unsigned char b = byte_of(c);
  return b >= 'A' && b <= 'Z';
}

extern "C" int gen_isblank(int c) {
  unsigned char b = byte_of(c);
  return b == ' ' || b == '\t';
}

extern "C" int gen_isbreak(int c) {
  unsigned char b = byte_of(c);
  return b == ';' || b < 33 || b >= 127;
}

extern "C" int gen_isblankstring(const char *s) {
  if (s == nullptr) return 0;
  for (; *s != '\0'; s++)
    if (!gen_isblank(*s)) return 0;
  return 1;
}

extern "C" int gen_is_whitespace(int c) {
  unsigned char b = byte_of(c);
  return (b == '\t' || b == '\n' || b == ' ') ? 2 : 0;
}

extern "C" int gen_is_separator(int c) { return byte_of(c) == '/'; }

extern "C" int gen_is_alphanum(int c) {
  unsigned char b = byte_of(c);
  return is_ascii_letter(b) || is_ascii_digit(b) || b == '$' || b >= 0x80;
}

extern "C" int gen_is_arith(int c) {
  switch (byte_of(c)) {
  case '=': case '>': case '<': case ':': case '!': case '+':
  case '-': case '*': case '/': case '&': case '|':
    return 9;
  default:
    return 0;
  }
}

/* ======================================================================
 * Comparison
 * ====================================================================== */

extern "C" int gen_strequal(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return a == b;
  for (; *a != '\0'; a++, b++)
    if (fold(*a) != fold(*b)) return 0;
  return *b == '\0';
}

extern "C" int gen_strnequal(const char *a, const char *b, int n) {
  if (a == nullptr || b == nullptr) return a == b;
  for (; n > 0 && *a != '\0'; a++, b++, n--)
    if (fold(*a) != fold(*b)) return 0;
  return n <= 0 || *a == *b;
}

namespace {
/* -1, 0 or 1 by the first folded difference within n characters. */
int compare_folded(const char *a, const char *b, size_t n) {
  for (; n > 0; a++, b++, n--) {
    if (*a == '\0') return *b == '\0' ? 0 : -1;
    if (*b == '\0') return 1;
    int fa = fold(*a);
    int fb = fold(*b);
    if (fa != fb) return fa < fb ? -1 : 1;
  }
  return 0;
}
} // namespace

extern "C" int gen_stricmp(const char *a, const char *b) { return compare_folded(a, b, SIZE_MAX); }

extern "C" int gen_strnicmp(const char *a, const char *b, int n) {
  return n < 1 ? 0 : compare_folded(a, b, static_cast<size_t>(n));
}

extern "C" int gen_strprefixn(const char *s, const char *p, int n) {
  for (int i = 0; i < n && p[i] != '\0'; i++)
    if (s[i] != p[i]) return 0;
  return 1;
}

extern "C" int gen_strprefix(const char *s, const char *p) {
  return strncmp(s, p, strlen(p)) == 0;
}

extern "C" int gen_strcaseprefixn(const char *s, const char *p, int n) {
  for (int i = 0; i < n && p[i] != '\0'; i++)
    if (fold(s[i]) != fold(p[i])) return 0;
  return 1;
}

extern "C" int gen_strcaseprefix(const char *s, const char *p) {
  size_t length = strlen(p);
  for (size_t i = 0; i < length; i++)
    if (fold(s[i]) != fold(p[i])) return 0;
  return 1;
}

extern "C" int gen_strsuffix(const char *s, const char *x) {
  size_t s_length = strlen(s);
  size_t x_length = strlen(x);
  return x_length < s_length && memcmp(s + s_length - x_length, x, x_length) == 0;
}

/* ======================================================================
 * Searches
 * ====================================================================== */

extern "C" char *gen_strstr(const char *s, const char *x) {
  if (s == nullptr || x == nullptr || x[0] == '\0') return nullptr;
  return const_cast<char *>(strstr(s, x));
}

extern "C" char *gen_strcasestr(const char *s, const char *x) {
  if (s == nullptr || x == nullptr || s[0] == '\0') return nullptr;
  size_t x_length = strlen(x);
  for (size_t remaining = strlen(s); remaining >= x_length; s++, remaining--)
    if (equal_folded(s, x, x_length)) return const_cast<char *>(s);
  return nullptr;
}

extern "C" char *gen_strstr2(const char *s, const char *x) { return gen_strcasestr(s, x); }

namespace {
/* The last position in s where x matches by `same`, or null. */
template <typename Same>
char *find_last(const char *s, const char *x, Same same) {
  if (s == nullptr || x == nullptr) return nullptr;
  size_t s_length = strlen(s);
  size_t x_length = strlen(x);
  if (x_length > s_length) return nullptr;
  for (size_t at = s_length - x_length + 1; at-- > 0;)
    if (same(s + at, x, x_length)) return const_cast<char *>(s + at);
  return nullptr;
}
} // namespace

extern "C" char *gen_strrstr(const char *s, const char *x) {
  return find_last(s, x, [](const char *at, const char *y, size_t n) { return memcmp(at, y, n) == 0; });
}

extern "C" char *gen_strrcasestr(const char *s, const char *x) {
  return find_last(s, x, equal_folded);
}

/* ======================================================================
 * Case mapping
 * ====================================================================== */

extern "C" char *gen_strlower(const char *s) {
  char *result = gen_copy(s);
  for (char *c = result; c != nullptr && *c != '\0'; c++)
    if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
  return result;
}

extern "C" char *gen_strupper(const char *s) {
  char *result = gen_copy(s);
  for (char *c = result; c != nullptr && *c != '\0'; c++)
    if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
  return result;
}

/* ======================================================================
 * Copy family
 * ====================================================================== */

extern "C" char *gen_copy(const char *s) {
  if (s == nullptr) return nullptr;
  return new_string(s, strlen(s));
}

extern "C" char *gen_copyn(const char *s, int n) {
  if (s == nullptr || n < 0) return nullptr;
  char *copy = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(n) + 1));
  memcpy(copy, s, strnlen(s, static_cast<size_t>(n)));
  return copy;
}

extern "C" char *gen_fcopy(char *old, const char *s) { return free_first(old, gen_copy(s)); }

extern "C" char *gen_fcopyn(char *old, const char *s, int n) {
  return free_first(old, gen_copyn(s, n));
}

extern "C" void gen_strchange(char **var, const char *s) {
  if (*var == s) return;
  char *old = *var;
  *var = gen_copy(s);
  gen_free(old);
}

extern "C" void gen_strchangen(char **var, const char *s, int n) {
  char *old = *var;
  *var = gen_copyn(s, n);
  gen_free(old);
}

/* ======================================================================
 * Join family
 * ====================================================================== */

extern "C" char *gen_concat(const char *a, const char *b) {
  if (is_empty(a)) return gen_copy(b);
  if (is_empty(b)) return gen_copy(a);
  return join({a, b});
}

extern "C" char *gen_concatn(const char *a, const char *b, int n) {
  if (is_empty(a)) return gen_copyn(b, n);
  if (b == nullptr || n < 1) return gen_copy(a);
  size_t a_length = strlen(a);
  size_t b_length = strnlen(b, static_cast<size_t>(n));
  char *result = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(a_length + b_length + 1)));
  memcpy(result, a, a_length);
  memcpy(result + a_length, b, b_length);
  return result;
}

extern "C" char *gen_concat3(const char *a, const char *b, const char *c) {
  if (a == nullptr) return gen_concat(b, c);
  if (b == nullptr) return gen_concat(a, c);
  if (c == nullptr) return gen_concat(a, b);
  return join({a, b, c});
}

extern "C" char *gen_concat_sep(const char *a, char sep, const char *b) {
  if (a == nullptr) return gen_copy(b);
  if (sep == '\0') return gen_concat(a, b);
  if (b == nullptr) return gen_copy(a);
  const char separator[2] = {sep, '\0'};
  return join({a, separator, b});
}

extern "C" char *gen_concat4(const char *a1, const char *a2, const char *a3, const char *a4) {
  return join({a1, a2, a3, a4});
}

extern "C" char *gen_concat5(const char *a1, const char *a2, const char *a3, const char *a4,
                             const char *a5) {
  return join({a1, a2, a3, a4, a5});
}

extern "C" char *gen_concat6(const char *a1, const char *a2, const char *a3, const char *a4,
                             const char *a5, const char *a6) {
  return join({a1, a2, a3, a4, a5, a6});
}

extern "C" char *gen_concat7(const char *a1, const char *a2, const char *a3, const char *a4,
                             const char *a5, const char *a6, const char *a7) {
  return join({a1, a2, a3, a4, a5, a6, a7});
}

extern "C" char *gen_concat8(const char *a1, const char *a2, const char *a3, const char *a4,
                             const char *a5, const char *a6, const char *a7, const char *a8) {
  return join({a1, a2, a3, a4, a5, a6, a7, a8});
}

extern "C" char *gen_concat9(const char *a1, const char *a2, const char *a3, const char *a4,
                             const char *a5, const char *a6, const char *a7, const char *a8,
                             const char *a9) {
  return join({a1, a2, a3, a4, a5, a6, a7, a8, a9});
}

extern "C" char *gen_concat_int(const char *a, int i) {
  char text[16];
  snprintf(text, sizeof text, "%d", i);
  return gen_concat(a, text);
}

extern "C" char *gen_fconcat(char *a, const char *b) { return free_first(a, gen_concat(a, b)); }

extern "C" char *gen_fconcatn(char *a, const char *b, int n) {
  return free_first(a, gen_concatn(a, b, n));
}

extern "C" char *gen_fconcat3(char *a, const char *b, const char *c) {
  return free_first(a, gen_concat3(a, b, c));
}

extern "C" char *gen_fconcat_sep(char *a, char sep, const char *b) {
  return free_first(a, gen_concat_sep(a, sep, b));
}

extern "C" char *gen_fconcat4(char *a1, const char *a2, const char *a3, const char *a4) {
  return free_first(a1, gen_concat4(a1, a2, a3, a4));
}

extern "C" char *gen_fconcat5(char *a1, const char *a2, const char *a3, const char *a4,
                              const char *a5) {
  return free_first(a1, gen_concat5(a1, a2, a3, a4, a5));
}

extern "C" char *gen_fconcat6(char *a1, const char *a2, const char *a3, const char *a4,
                              const char *a5, const char *a6) {
  return free_first(a1, gen_concat6(a1, a2, a3, a4, a5, a6));
}

extern "C" char *gen_fconcat7(char *a1, const char *a2, const char *a3, const char *a4,
                              const char *a5, const char *a6, const char *a7) {
  return free_first(a1, gen_concat7(a1, a2, a3, a4, a5, a6, a7));
}

extern "C" char *gen_fconcat8(char *a1, const char *a2, const char *a3, const char *a4,
                              const char *a5, const char *a6, const char *a7, const char *a8) {
  return free_first(a1, gen_concat8(a1, a2, a3, a4, a5, a6, a7, a8));
}

extern "C" char *gen_fconcat9(char *a1, const char *a2, const char *a3, const char *a4,
                              const char *a5, const char *a6, const char *a7, const char *a8,
                              const char *a9) {
  return free_first(a1, gen_concat9(a1, a2, a3, a4, a5, a6, a7, a8, a9));
}

extern "C" char *gen_fconcat_int(char *a, int i) { return free_first(a, gen_concat_int(a, i)); }

/* ======================================================================
 * Joining file names
 * ====================================================================== */

extern "C" char *gen_sconcat(const char *dir, const char *name) {
  if (name != nullptr && name[0] != '~' && gen_absolutefilename(name)) return gen_copy(name);
  if (is_empty(dir)) return gen_copy(name);

  char *joined;
  if (!is_empty(name) && dir[strlen(dir) - 1] != '/')
    joined = join({dir, "/", name});
  else
    joined = gen_concat(dir, name);
  gen_canonicalfilename(joined);
  if (joined[0] == '\0') return free_first(joined, gen_copy("."));
  return joined;
}

extern "C" char *gen_sconcatf(char *dir, const char *name) {
  return free_first(dir, gen_sconcat(dir, name));
}

extern "C" char *gen_dconcat(const char *dir, const char *name) {
  if (is_empty(name)) return gen_copy(dir);
  if (is_empty(dir)) return gen_copy(name);
  if (gen_absolutefilename(name)) return gen_copy(name);
  return gen_sconcat(dir, name);
}

extern "C" char *gen_dconcatf(char *dir, const char *name) {
  return free_first(dir, gen_dconcat(dir, name));
}

extern "C" char *gen_ddconcat(const char *a, const char *b, const char *c) {
  return gen_dconcatf(gen_dconcat(a, b), c);
}

extern "C" char *gen_dsconcat(const char *a, const char *b, const char *c) {
  return gen_sconcatf(gen_dconcat(a, b), c);
}

extern "C" char *gen_ddsconcat(const char *a, const char *b, const char *c, const char *d) {
  return gen_sconcatf(gen_ddconcat(a, b, c), d);
}
