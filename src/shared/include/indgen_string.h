/*
 * indgen_string.h - the foundation's plain string layer: character classes,
 * comparison without regard to case, prefix and suffix tests, searches, a
 * tokeniser, case mapping, the copy and join families that build new heap
 * strings, the joiner of file names (gen_sconcat and its family), classes of
 * source-text characters and a small hash.
 *
 * All strings are 8-bit and NUL-terminated; only ASCII letters have case,
 * and "folded" means that 'A'..'Z' become 'a'..'z' before a comparison.
 *
 * Ownership:
 *  - a function that returns a new string returns memory from gen_alloc; the
 *    caller frees it with gen_free;
 *  - a function whose name carries an 'f' (gen_fcopy, gen_fconcat,
 *    gen_sconcatf, gen_dconcatf, ...) frees its first argument after it has
 *    built the result; that argument must be heap memory or null;
 *  - searches return pointers into their first argument and allocate
 *    nothing.
 * Null arguments are accepted only where a comment says so.  Nothing here
 * prints; out of memory ends the program inside gen_alloc.
 */
#ifndef RAVELOG_INDGEN_STRING_H
#define RAVELOG_INDGEN_STRING_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Character classes ------------------------------------------------
 * Each takes a character as an int (a negative signed char counts as the
 * byte it stands for) and returns 1 or 0 unless said otherwise. */
int gen_isspace(int c);   /* blank, tab, newline, CR, form feed; not VT      */
int gen_isalnum(int c);   /* ASCII letters and digits                        */
int gen_isupper(int c);   /* 'A'..'Z'                                        */
int gen_isblank(int c);   /* blank and tab                                   */
int gen_isbreak(int c);   /* ';', anything below 33, anything from 127 up    */
int gen_is_whitespace(int c); /* tab, newline, blank: 2; otherwise 0         */
int gen_is_separator(int c);  /* '/'                                         */
/* ASCII letters, digits, '$' and every byte with the top bit set; not '_'. */
int gen_is_alphanum(int c);
/* = > < : ! + - * / & and the vertical bar: 9; otherwise 0. */
int gen_is_arith(int c);
/* True for a string of blanks and tabs only, the empty string included;
 * false for null. */
int gen_isblankstring(const char *s);

/* ---- Comparison --------------------------------------------------------
 * Characters compare as signed 8-bit values. */
/* True when a and b are equal folded; with a null pointer, true only when
 * both are null. */
int gen_strequal(const char *a, const char *b);
/* True when a and b agree over their first n characters, folded.  With a
 * null pointer the result is whether both are null.  The walk stops at the
 * end of a or after n characters; the result is then true when n ran out or
 * when the two current characters are equal as they stand. */
int gen_strnequal(const char *a, const char *b, int n);
/* -1, 0 or 1 by the first folded difference; a string sorts before its
 * longer continuations.  Both must be valid strings. */
int gen_stricmp(const char *a, const char *b);
/* As gen_stricmp over at most n characters; 0 when n is below 1. */
int gen_strnicmp(const char *a, const char *b, int n);
/* True when s begins with p, byte for byte; "" is a prefix of everything. */
int gen_strprefix(const char *s, const char *p);
/* As gen_strprefix with only the first n characters of p (none when n is
 * below 1). */
int gen_strprefixn(const char *s, const char *p, int n);
/* gen_strprefix, folded. */
int gen_strcaseprefix(const char *s, const char *p);
/* gen_strprefixn, folded. */
int gen_strcaseprefixn(const char *s, const char *p, int n);
/* True when s ends in x byte for byte and x is strictly shorter than s: a
 * string is not a suffix of itself. */
int gen_strsuffix(const char *s, const char *x);

/* ---- Searches ----------------------------------------------------------
 * Each returns a pointer into s, or null when there is no match or either
 * argument is null. */
/* First occurrence of x, byte for byte; an empty x gives null. */
char *gen_strstr(const char *s, const char *x);
/* First occurrence of x, folded; an empty x gives s, unless s is empty. */
char *gen_strcasestr(const char *s, const char *x);
/* The same as gen_strcasestr. */
char *gen_strstr2(const char *s, const char *x);
/* Last occurrence of x, byte for byte; an empty x gives the end of s. */
char *gen_strrstr(const char *s, const char *x);
/* Last occurrence of x, folded; an empty x gives the end of s. */
char *gen_strrcasestr(const char *s, const char *x);

/* ---- Case mapping: new strings; null gives null ------------------------ */
char *gen_strlower(const char *s);
char *gen_strupper(const char *s);

/* ---- Copy family --------------------------------------------------------
 * n counts characters at most; a copy stops early at the end of the
 * source. */
/* New copy of s; null for null. */
char *gen_copy(const char *s);
/* New zero-filled string of room n + 1 holding up to n characters of s;
 * null for a null s or a negative n. */
char *gen_copyn(const char *s, int n);
/* gen_copy(s), then frees old (s may point into old). */
char *gen_fcopy(char *old, const char *s);
/* gen_copyn(s, n), then frees old. */
char *gen_fcopyn(char *old, const char *s, int n);
/* Nothing when *var already is s; otherwise stores gen_copy(s) in *var and
 * frees what *var held. */
void gen_strchange(char **var, const char *s);
/* Stores gen_copyn(s, n) in *var, then frees what *var held. */
void gen_strchangen(char **var, const char *s, int n);

/* ---- Join family --------------------------------------------------------
 * Each returns a new string (or null where said).  Every gen_fconcat*
 * partner returns the same as its base function and frees its first
 * argument afterwards. */
/* a then b.  A null or empty a gives gen_copy(b); a null or empty b gives
 * gen_copy(a); both null give null. */
char *gen_concat(const char *a, const char *b);
/* a then at most n characters of b.  A null or empty a gives
 * gen_copyn(b, n); a null b or an n below 1 gives gen_copy(a). */
char *gen_concatn(const char *a, const char *b, int n);
/* a, b, c.  A null a, b or c (tested in that order) gives gen_concat of the
 * other two; all null give null. */
char *gen_concat3(const char *a, const char *b, const char *c);
/* a, the character sep, b.  A null a gives gen_copy(b); a sep of 0 gives
 * gen_concat(a, b); a null b gives gen_copy(a). */
char *gen_concat_sep(const char *a, char sep, const char *b);
/* All arguments in order, a null one counting as "".  Always a new string,
 * also when every argument is null. */
char *gen_concat4(const char *a1, const char *a2, const char *a3, const char *a4);
char *gen_concat5(const char *a1, const char *a2, const char *a3, const char *a4,
                  const char *a5);
char *gen_concat6(const char *a1, const char *a2, const char *a3, const char *a4,
                  const char *a5, const char *a6);
char *gen_concat7(const char *a1, const char *a2, const char *a3, const char *a4,
                  const char *a5, const char *a6, const char *a7);
char *gen_concat8(const char *a1, const char *a2, const char *a3, const char *a4,
                  const char *a5, const char *a6, const char *a7, const char *a8);
char *gen_concat9(const char *a1, const char *a2, const char *a3, const char *a4,
                  const char *a5, const char *a6, const char *a7, const char *a8,
                  const char *a9);
/* gen_concat(a, i printed with "%d"). */
char *gen_concat_int(const char *a, int i);

char *gen_fconcat(char *a, const char *b);
char *gen_fconcatn(char *a, const char *b, int n);
char *gen_fconcat3(char *a, const char *b, const char *c);
char *gen_fconcat_sep(char *a, char sep, const char *b);
char *gen_fconcat4(char *a1, const char *a2, const char *a3, const char *a4);
char *gen_fconcat5(char *a1, const char *a2, const char *a3, const char *a4, const char *a5);
char *gen_fconcat6(char *a1, const char *a2, const char *a3, const char *a4, const char *a5,
                   const char *a6);
char *gen_fconcat7(char *a1, const char *a2, const char *a3, const char *a4, const char *a5,
                   const char *a6, const char *a7);
char *gen_fconcat8(char *a1, const char *a2, const char *a3, const char *a4, const char *a5,
                   const char *a6, const char *a7, const char *a8);
char *gen_fconcat9(char *a1, const char *a2, const char *a3, const char *a4, const char *a5,
                   const char *a6, const char *a7, const char *a8, const char *a9);
char *gen_fconcat_int(char *a, int i);

/* ---- Joining file names -------------------------------------------------
 * gen_sconcat is the joiner of file names for the whole library.  Every
 * result is a new string. */
/* An absolute name that doesn't begin with '~' comes back as a plain copy,
 * not canonicalised.  A null or empty dir gives gen_copy(name).  Otherwise
 * dir and name are joined with one '/' (none added when dir ends in '/' or
 * name is null or empty), the result is made canonical (indgen_canon.h), and
 * an empty result becomes ".".  A name beginning with '~' is joined like a
 * relative name. */
char *gen_sconcat(const char *dir, const char *name);
/* gen_sconcat, then frees dir. */
char *gen_sconcatf(char *dir, const char *name);
/* A null or empty name gives gen_copy(dir); a null or empty dir gives
 * gen_copy(name); an absolute name (a leading '~' included) gives
 * gen_copy(name); otherwise gen_sconcat(dir, name). */
char *gen_dconcat(const char *dir, const char *name);
/* gen_dconcat, then frees dir. */
char *gen_dconcatf(char *dir, const char *name);
/* gen_dconcatf(gen_dconcat(a, b), c). */
char *gen_ddconcat(const char *a, const char *b, const char *c);
/* gen_sconcatf(gen_dconcat(a, b), c). */
char *gen_dsconcat(const char *a, const char *b, const char *c);
/* gen_sconcatf(gen_ddconcat(a, b, c), d). */
char *gen_ddsconcat(const char *a, const char *b, const char *c, const char *d);

/* ---- Tokens and template names ------------------------------------------ */
/* Splits s in place at the characters of delimiters, without a hidden
 * position: pass the string first, then the value left in *next.  Leading
 * delimiters are skipped; the delimiter that ends the token becomes NUL and
 * *next points behind it; when the end of the string ends the token, *next
 * becomes null.  next may be null.  Returns the token, or null when it is
 * empty or s is null (a null s leaves *next alone).  delimiters must hold at
 * least one character. */
char *gen_strtok_r(char *s, const char *delimiters, char **next);
/* Finds the '>' that closes a template-style name such as "a<b, c<d>>".
 * The walk starts from *angle_depth and *paren_depth (0 for a null pointer)
 * and stores the final depths back, so that a caller may continue over
 * several pieces of text.  Returns the position of the closing '>', or null
 * when the text stops before one (or s is null). */
char *gen_find_close_angle(const char *s, int *angle_depth, int *paren_depth);

/* ---- Classes of source-text characters ----------------------------------- */
/* Class 0..13 (11 is never produced) of c between previous and next, for
 * selection by word: 0 NUL, 1 word, 2 white space, 3 ';', 4 ',', 5 '(',
 * 6 '{', 7 '[', 8 escaped, 9 '-', 10 comment mark, 12 empty bracket pair,
 * 13 other. */
int gen_new_char_type(int previous, int c, int next);
/* 0 for letters, digits, '_', '$' and bytes with the top bit set; 2 for tab,
 * newline and blank; -1 for NUL; 3 for everything else. */
int gen_char_type(int c);

/* ---- Hash ---------------------------------------------------------------- */
/* The 16 mixing words of gen_hcomp. */
extern const uint32_t gen_HashTable[16];
/* Hash of the n bytes at s: all of them when n is at most 9, otherwise only
 * the bytes at 0, 1, 2, n/2-1, n/2, n/2+1, n-3, n-2, n-1.  Always below
 * 2^31.  "abc" gives 0x5BA5A69E.  s must hold n bytes; n below 1 gives 0. */
uint32_t gen_hcomp(const char *s, int n);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_STRING_H */
