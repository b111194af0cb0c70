/*
 * indgen_string_scan.cpp - reading through text: the re-entrant tokeniser,
 * the finder of a template's closing '>', the classes of source-text
 * characters used for selection by word, and the sampled hash gen_hcomp.
 * Contracts: indgen_string.h.
 */
#include <cctype>
#include <cstring>

#include "indgen_string.h"

namespace {

/* Whether c is one of the n delimiters.  Sets of one and two characters are
 * compared directly; NUL is never a delimiter. */
bool is_delimiter(char c, const char *delimiters, size_t n) {
  if (c == '\0') return false;
  switch (n) {
  case 1: return c == delimiters[0];
  case 2: return c == delimiters[0] || c == delimiters[1];
  default: return memchr(delimiters, c, n) != nullptr;
  }
}

bool is_white(int c) { return gen_is_whitespace(c) != 0; }

} // namespace

/* ======================================================================
 * Tokens and template names
 * ====================================================================== */

extern "C" char *gen_strtok_r(char *s, const char *delimiters, char **next) {
  if (s == nullptr) return nullptr;
  const size_t count = strlen(delimiters);
  while (is_delimiter(*s, delimiters, count)) s++;
  char *token = s;
  while (*s != '\0' && !is_delimiter(*s, delimiters, count)) s++;
  char *rest = nullptr;
  if (*s != '\0') {
    *s = '\0';
    rest = s + 1;
  }
  if (next != nullptr) *next = rest;
  return token[0] != '\0' ? token : nullptr;
}

extern "C" char *gen_find_close_angle(const char *s, int *angle_depth, int *paren_depth) {
  if (s == nullptr) return nullptr;
  int angle = angle_depth != nullptr ? *angle_depth : 0;
  int paren = paren_depth != nullptr ? *paren_depth : 0;

  const char *c = s;
  for (;;) {
    const unsigned char ch = static_cast<unsigned char>(*c);
    const bool taken = isalnum(ch) || ch == '_' || (ch == '&' && c[1] != '&') ||
                       (ch == ':' && c[1] == ':') || ch == ',' || ch == '*' || ch == '<' ||
                       (ch == '>' && angle >= 1) || ch == '(' || (ch == ')' && paren >= 1) ||
                       is_white(ch);
    if (!taken) break;
    if (ch == '<') {
      angle++;
    } else if (ch == '>') {
      if (--angle == 0) break;
    } else if (ch == '(') {
      paren++;
    } else if (ch == ')') {
      paren--;
    }
    c += (ch == ':') ? 2 : 1;
  }

  if (angle_depth != nullptr) *angle_depth = angle;
  if (paren_depth != nullptr) *paren_depth = paren;
  return (*c == '>' && angle == 0 && paren == 0) ? const_cast<char *>(c) : nullptr;
}

/* ======================================================================
 * Classes of source-text characters
 * ====================================================================== */

extern "C" int gen_new_char_type(int previous, int c, int next) {
  if (c == '\0') return 0;
  if (c == '\\' || previous == '\\') return 8;
  if (gen_is_alphanum(c)) return 1;
  if (is_white(c)) return 2;
  switch (c) {
  case '-':
    return (is_white(previous) && gen_is_alphanum(next)) ? 1 : 9;
  case '/':
    return (previous == '*' || previous == '/' || next == '*' || next == '/') ? 10 : 13;
  case '*':
    return (previous == '/' || next == '/') ? 10 : 13;
  case '\'':
    return (gen_is_alphanum(previous) && gen_is_alphanum(next)) ? 1 : 13;
  case '_':
    return 1;
  case ';':
    return 3;
  case ',':
    return 4;
  default:
    break;
  }
  if ((c == '(' && next == ')') || (previous == '(' && c == ')')) return 12;
  if (c == '(' || previous == '(') return 5;
  if ((c == '{' && next == '}') || (previous == '{' && c == '}')) return 12;
  if (c == '{' || previous == '{') return 6;
  if ((c == '[' && next == ']') || (previous == '[' && c == ']')) return 12;
  if (c == '[' || previous == '[') return 7;
  return 13;
}

extern "C" int gen_char_type(int c) {
  const unsigned char b = static_cast<unsigned char>(c);
  if (b == '\0') return -1;
  if (gen_is_alphanum(b) || b == '_') return 0;
  if (is_white(b)) return 2;
  return 3;
}

/* ======================================================================
 * Hash
 * ====================================================================== */

extern "C" const uint32_t gen_HashTable[16] = {
    0x96696996u, 0x3CC3C33Cu, 0x5AA5A55Au, 0xF00F0FF0u, 0x66999966u, 0xCC3333CCu,
    0xAA5555AAu, 0x00FFFF00u, 0x69699696u, 0xC3C33C3Cu, 0xA5A55A5Au, 0x0F0FF0F0u,
    0x99999999u, 0x33333333u, 0x55555555u, 0xFFFFFFFFu,
};

extern "C" uint32_t gen_hcomp(const char *s, int n) {
  if (n < 1) return 0;
  int positions[9];
  int count = 0;
  if (n <= 9) {
    for (; count < n; count++) positions[count] = count;
  } else {
    const int half = n / 2;
    const int sampled[9] = {0, 1, 2, half - 1, half, half + 1, n - 3, n - 2, n - 1};
    for (; count < 9; count++) positions[count] = sampled[count];
  }

  uint32_t a = 0;
  uint32_t b = 0;
  for (int i = 0; i < count; i++) {
    /* Each byte counts as a signed 8-bit value widened to 32 bits. */
    const uint32_t mixed = static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(s[positions[i]])));
    a += gen_HashTable[b & 15] ^ mixed;
    b += a;
  }
  return b & 0x7FFFFFFFu;
}
