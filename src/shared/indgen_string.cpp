/*
 * indgen_string.cpp - comparison and copying of 8-bit NUL-terminated
 * strings.  Only ASCII letters have case.
 */
#include "indgen_string.h"

#include <cstring>

#include "indgeninit.h"

namespace {
int fold(char c) { return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c; }
} // namespace

extern "C" int gen_strnequal(const char *a, const char *b, int n) {
  if (a == nullptr || b == nullptr) return a == b;
  for (; n > 0 && *a != '\0'; a++, b++, n--)
    if (fold(*a) != fold(*b)) return 0;
  return n <= 0 || *a == *b;
}

extern "C" char *gen_copy(const char *s) {
  if (s == nullptr) return nullptr;
  size_t length = strlen(s);
  char *copy = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(length + 1)));
  memcpy(copy, s, length + 1);
  return copy;
}

extern "C" char *gen_copyn(const char *s, int n) {
  if (s == nullptr || n < 0) return nullptr;
  char *copy = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(n) + 1));
  size_t length = strnlen(s, static_cast<size_t>(n));
  memcpy(copy, s, length);
  return copy;
}
