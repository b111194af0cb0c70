/*
 * indgen_quote.h - quoting and unquoting of strings with backslash escapes,
 * quoting of file names for a shell, and printf-style formatting into
 * fixed buffers and into new ones.
 *
 * Every returned string is new heap memory from gen_alloc that the caller
 * frees with gen_free, unless its comment says otherwise; a null input
 * string gives null.  Nothing here prints.
 *
 * The escapes written by the quoting functions:
 *
 *   character            written as   when
 *   \  "  '              \\  \"  \'   always, whatever the quote character
 *   newline, CR, tab     \n  \r  \t   escape_controls set
 *   bytes 1, 2, 3        \1  \2  \3   escape_controls set
 *
 * The escapes read by the unquoting functions (gen_unescape_one_char):
 *
 *   \a \b \f \n \r \t \v   7, 8, 12, 10, 13, 9, 11
 *   \\ \" \' \?            the character itself
 *   \0 .. \3               octal: this digit and up to two more octal digits
 *   \x                     hexadecimal: up to two digits of either case,
 *                          none gives 0
 *   \ and any other        that character (so \7 is '7')
 *   \ at the end           0
 *
 * Since \1 \2 \3 are read as octal escapes, a byte 1, 2 or 3 followed by an
 * octal digit does not survive gen_escapify_string and
 * gen_unescapify_string: "\1" "7" comes back as the byte 017.
 */
#ifndef RAVELOG_INDGEN_QUOTE_H
#define RAVELOG_INDGEN_QUOTE_H

#include <stdarg.h>
#include <stddef.h>

#include "indgeninit.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Quoting ------------------------------------------------------------ */

/* s with each \ " ' (and with escape_controls each newline, CR, tab and
 * byte 1, 2, 3) escaped as in the table above, enclosed in quote unless
 * quote is 0. */
char *xquotify_string(const char *s, int quote, int escape_controls);
/* "s" with \ " ' escaped; control characters stay as they are. */
char *gen_quotify_string(const char *s);
/* 's' with \ " ' escaped; control characters stay as they are. */
char *gen_single_quotify_string(const char *s);
/* s with \ " ' and the control characters of the table escaped, unquoted. */
char *gen_escapify_string(const char *s);

/* ---- Unquoting ----------------------------------------------------------- */

/* Reads one character or escape sequence at *p, moves *p behind it and
 * returns the character as a signed 8-bit value (so \xff gives -1).  At the
 * terminating NUL it returns 0 and leaves *p there. */
signed char gen_unescape_one_char(const char **p);
/* s with every unescaped occurrence of quote dropped (quote 0 drops
 * nothing); with unescape set the escapes are decoded, and an escape that
 * gives 0 (such as \0) ends the string there. */
char *xunquotify_string(const char *s, int quote, int unescape);
/* Undoes gen_quotify_string and gen_single_quotify_string: drops the quote
 * character that s begins with (' or "), if any, wherever it stands
 * unescaped, and decodes the escapes.  A missing closing quote does no
 * harm; "" gives a new "". */
char *gen_dequotify_string(const char *s);
/* Drops every unescaped ' and decodes the escapes. */
char *gen_single_dequotify_string(const char *s);
/* Drops every unescaped " and decodes the escapes. */
char *gen_double_dequotify_string(const char *s);
/* Decodes the escapes; undoes gen_escapify_string (see the note above). */
char *gen_unescapify_string(const char *s);

/* ---- File names for a shell -------------------------------------------- */

/* True when name holds a blank or a ".  Null gives false. */
int needs_shellescaping(const char *name);
/* 'name' when it needs shell escaping, else a copy; nothing inside the name
 * changes, so a ' within stays as it is. */
char *gen_shellescapify_filename(const char *name);
/* Undoes gen_shellescapify_filename: a name beginning with ' loses it and
 * one ' at its end (if there is one); a name beginning with " goes through
 * gen_dequotify_string; anything else is copied. */
char *gen_unshellescapify_filename(const char *name);

/* ---- Other ------------------------------------------------------------------ */

/* New string of 2 * size lower-case hexadecimal digits, the low digit of
 * each byte first: the byte 0x12 gives "21".  size 0 gives "".  Null when
 * the text would not fit in an unsigned count of bytes. */
char *gen_binary_to_string(const void *data, unsigned size);
/* "/dev/null"; not the caller's. */
const char *gen_devnullpathname(void);

/* ---- Formatting ----------------------------------------------------------
 * The formatter measures a text by printing it to the null device and then
 * prints it for real, so it works on hosts without vsnprintf.  It keeps
 * static state (the open null device and a growing scratch buffer, neither
 * ever freed) and is not reentrant. */

/* The number of characters that format with args produces (negative when
 * the format can't be printed). */
int gen_Xprintflen(const char *format, va_list args) GEN_PRINTF_LIKE(1, 0);
/* Formats into buf of size bytes and returns the full length of the text
 * (without its terminator).  size 0 only measures and doesn't touch buf.
 * When the text is shorter than size - 1 it is printed with its
 * terminator.  Otherwise exactly size bytes of it are copied: a text of
 * size - 1 characters arrives with its terminator, a longer one is cut
 * without any, which the caller sees from a result of size or more. */
int gen_vsnprintf(char *buf, size_t size, const char *format, va_list args)
    GEN_PRINTF_LIKE(3, 0);
int gen_snprintf(char *buf, size_t size, const char *format, ...) GEN_PRINTF_LIKE(3, 4);
/* The formatted text in a new block from malloc (not gen_alloc), which the
 * caller frees with gen_free.  Null when the format can't be printed. */
char *gen_vmsprintf(const char *format, va_list args) GEN_PRINTF_LIKE(1, 0);
char *gen_msprintf(const char *format, ...) GEN_PRINTF_LIKE(1, 2);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_QUOTE_H */
