/*
 * indgadr.h - target addresses whatever the target's address width.
 *
 * A gadr is one record for an address on the target.  The width is not in
 * the record but in the process-wide current mode, theMode, and every
 * operation here follows it, so callers never branch on the width.  The
 * family: modes and their names, assignment, nil and zero tests,
 * comparison, arithmetic that wraps at the width of the mode, text in and
 * out, scaling, alignment, and tests against ranges that may wrap past the
 * top of the address space.  GFile stores gadr values (indgfile.h) and keeps
 * a mode of its own in its header.
 *
 * ---- Modes --------------------------------------------------------------
 * Every mode has a number (used in memory, e.g. GFile's adr_mode), a name
 * (for people) and an encoding (the byte that a GFile header holds):
 *
 *   number  name            encoding  address form
 *   0       "16bit"         2         16-bit offset
 *   1       "16bit-16seg"   66        16-bit segment and 16-bit offset
 *   2       "32bit"         4         32-bit address
 *   3       "64bit"         8         64-bit address
 *
 * theMode starts as 2 (32bit).  gadr_set_mode doesn't check its argument;
 * while theMode holds a number outside the table, every operation below
 * that depends on the mode acts as in 32bit (gadr_is32bit() still says 0).
 *
 * ---- The record ---------------------------------------------------------
 *   lo  the low 32 bits.  In modes 0 and 1 its low half is the offset
 *       ("off") and its high half the segment ("seg"), so comparing lo as
 *       a number compares the segment first.
 *   hi  the high 32 bits: used in 64bit, kept 0 by most operations below.
 *
 * Nil (no address) has every bit of lo and hi set, zero has them all clear.
 * gadr_assign_nil, gadrNil and GFile's gf_get_adr make the full pattern;
 * each mode recognises nil and zero by its own test:
 *
 *   mode  nil when                      zero when
 *   0     off is 0xFFFF                 lo and hi are 0
 *   1     off is 0xFFFF, whatever seg   off and hi are 0, whatever seg
 *   2     lo is 0xFFFFFFFF              lo and hi are 0
 *   3     lo and hi are 0xFFFFFFFF      lo and hi are 0
 *
 * ---- Conventions --------------------------------------------------------
 * gadr arguments are pointers: inputs const gadr *, destinations gadr *.
 * A destination may be one of the inputs.  Every pointer must be valid
 * (null is a caller's mistake) unless a comment says otherwise.  Tests
 * return 1 or 0; comparisons -1, 0 or 1 with the usual sign (negative when
 * the first argument is smaller), all unsigned.
 *
 * Errors: nothing here fails.  An unusable argument gives one message
 * through gen_error (a wrapping range that isn't valid: gen_warning) and a
 * fixed result, and the program goes on.  The texts are given at each
 * function.
 *
 * One thread: theMode is a plain global with no lock.
 */
#ifndef RAVELOG_INDGADR_H
#define RAVELOG_INDGADR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Modes ----------------------------------------------------------- */
#define GADR_MODE_16BIT 0
#define GADR_MODE_16BIT_16SEG 1
#define GADR_MODE_32BIT 2
#define GADR_MODE_64BIT 3
#define GADR_NUM_MODES 4

#define GADR_NAME_16BIT "16bit"
#define GADR_NAME_16BIT_16SEG "16bit-16seg"
#define GADR_NAME_32BIT "32bit"
#define GADR_NAME_64BIT "64bit"

/* The header byte of each mode. */
#define GADR_ENCODING_16BIT 2
#define GADR_ENCODING_16BIT_16SEG 66
#define GADR_ENCODING_32BIT 4
#define GADR_ENCODING_64BIT 8

/* ---- The record ------------------------------------------------------ */
typedef struct gadr {
  uint32_t lo; /* low word; in modes 0 and 1: segment << 16 | offset */
  uint32_t hi; /* high word; used in 64bit */
} gadr;

/* ---- Modes and their header encodings -------------------------------- */

/* Sets theMode to mode, unchecked, and returns the old value. */
int gadr_set_mode(int mode);
/* theMode. */
int gadr_get_mode(void);

/* The name of mode from the table ("16bit", ...), a static string.  An
 * unknown mode gives gen_error("[adr_name_from_mode]: unknown mode!") and
 * "unknown". */
const char *gadr_name_from_mode(int mode);

/* The mode of addresses of adrSize bytes with segments of segSize bytes:
 * (2, 0) gives 0, (4, 0) gives 2, (8, 0) gives 3, (2, 2) gives 1.  Anything
 * else gives gen_error("[gadr_get_mode_for_adr_byte_size]: bad adr
 * parameters") and 2. */
int gadr_get_mode_for_adr_byte_size(int adrSize, int segSize);

/* 1 when theMode is exactly that mode, else 0. */
int gadr_is16bit(void);
int gadr_is16bit_16seg(void);
int gadr_is32bit(void);
int gadr_is64bit(void);

/* The encoding of mode (2, 66, 4 or 8).  A mode outside the table gives
 * gen_error("[gadr_encoding_from_mode]: unknown mode!") and the encoding of
 * 32bit, 4. */
int gadr_encoding_from_mode(int mode);

/* The mode whose encoding is the low 8 bits of encoding (so 0x142 gives
 * mode 1).  Any other byte gives
 * gen_error("[gadr_mode_from_encoding]: unknown mode!") and the mode 32bit,
 * 2. */
int gadr_mode_from_encoding(int encoding);

/* ---- Assignment ------------------------------------------------------ */

/* *dst = *a, both words. */
void gadr_assign(gadr *dst, const gadr *a);
/* lo = value; hi = all ones when bit 31 of value is set and either value is
 * 0xFFFFFFFF or the mode is 64bit, else 0.  So nil stays nil, and in 64bit
 * a 32-bit value is sign-extended (0x80000000 gives hi 0xFFFFFFFF). */
void gadr_assign32(gadr *dst, uint32_t value);
/* lo and hi = the low and high words of value, except that below 64bit a
 * sign-extended 32-bit address (hi all ones, bit 31 of lo set, lo not all
 * ones) loses its extension: hi = 0.  Nil stays nil. */
void gadr_assign64(gadr *dst, uint64_t value);
/* Both words 0. */
void gadr_assign_0(gadr *dst);
/* Both words all ones. */
void gadr_assign_nil(gadr *dst);
/* A nil address by value, both words all ones. */
gadr gadrNil(void);
/* In 64bit with hi 0: hi = all ones when bit 31 of lo is set.  Otherwise
 * nothing. */
void gadr_sign_extend(gadr *a);

/* ---- Tests --------------------------------------------------------------
 * 1 or 0, by the mode's table above. */
int gadr_is_0(const gadr *a);
int gadr_is_nil(const gadr *a);
int gadr_is_not_0(const gadr *a);
int gadr_is_not_nil(const gadr *a);
/* Tests of their own:
 *   mode   gadr_is_nil_or_0                gadr_is_not_nil_or_0
 *   0, 1   lo is 0, or off is 0xFFFF        off neither 0 nor 0xFFFF
 *   2      lo is 0 or 0xFFFFFFFF            lo neither 0 nor 0xFFFFFFFF
 *   3      both words 0, or both all ones   neither of those
 * (So in mode 1 a nonzero seg with off 0 answers 0 to both.) */
int gadr_is_nil_or_0(const gadr *a);
int gadr_is_not_nil_or_0(const gadr *a);

/* On plain 32-bit values, whatever the mode.  gadr32_is_nil: 1 for
 * 0xFFFFFFFF.  The scalers return value * scale and value / scale
 * (wrapping at 32 bits) and pass 0xFFFFFFFF through unchanged; a scale of 0
 * is a caller's mistake, and gadr32_scale_down then returns value. */
int gadr32_is_nil(uint32_t value);
uint32_t gadr32_scale_up(uint32_t value, uint32_t scale);
uint32_t gadr32_scale_down(uint32_t value, uint32_t scale);

/* ---- Comparison ---------------------------------------------------------
 * Unsigned, on the mode's key: off in mode 0, lo in modes 1 and 2, hi then
 * lo in mode 3. */
int gadr_cmp(const gadr *a, const gadr *b); /* -1, 0, 1 */
int gadr_lt(const gadr *a, const gadr *b);
int gadr_lte(const gadr *a, const gadr *b);
int gadr_equal(const gadr *a, const gadr *b);
int gadr_not_equal(const gadr *a, const gadr *b);
/* Against a 32-bit value: in mode 0 off against all 32 bits of value; in
 * modes 1 and 2 lo; in mode 3 a nonzero hi makes a the greater (gadr_cmp32
 * 1, gadr_lt32 and gadr_lte32 0), else lo. */
int gadr_cmp32(const gadr *a, uint32_t value); /* -1, 0, 1 */
int gadr_lt32(const gadr *a, uint32_t value);
int gadr_lte32(const gadr *a, uint32_t value);

/* ---- Arithmetic ---------------------------------------------------------
 * Everything wraps at the width of its mode.  Operations with a destination
 * write all of it; those without change a in place and leave the rest of a
 * as it was.
 *
 *   operation        mode 0               mode 1                mode 2       mode 3
 *   add(dst, a, b)   off = a.off+b.off;   seg, off each summed  lo = sum;    64-bit sum
 *                    seg, hi 0            (no carry); hi 0      hi 0
 *   sub(dst, a, b)   as add, difference   as add, differences   as add       64-bit difference
 *   inc(a, b)        off += b.off         off += b.off          lo += b.lo   64-bit sum
 *   dec(a, b)        off -= b.off;        seg, off each         lo -= b.lo;  64-bit difference
 *                    seg, hi 0            subtracted; hi 0      hi 0
 *   add32(dst, a, v) off + v; seg, hi 0   off + v; seg of a;    lo + v;      signed, see below
 *                                         hi 0                  hi 0
 *   sub32(dst, a, v) off - v; seg, hi 0   off - v; seg of a;    lo - v;      signed, see below
 *                                         hi 0                  hi 0
 *   inc32(a, v)      off += v             off += v              lo += v      signed, see below
 *   dec32(a, v)      off -= v             off -= v              lo -= v      signed, see below
 *
 * In 64bit the 32-bit operations take value as a signed number.  A value
 * not below 0 adds with a carry into hi or subtracts with a borrow from hi.
 * A negative value turns the operation into its opposite with the negated
 * value (add32 <-> sub32, inc32 <-> dec32).  -2147483648 is its own
 * negation: the subtracting operations take it as 2147483648 and subtract
 * it, and add32 and inc32 get there through the negation.  So in 64bit
 * sub32(a, 0x80000000) and add32(a, 0x80000000) both give a - 2^31. */
void gadr_add(gadr *dst, const gadr *a, const gadr *b);
void gadr_sub(gadr *dst, const gadr *a, const gadr *b);
void gadr_inc(gadr *a, const gadr *b);
void gadr_dec(gadr *a, const gadr *b);
void gadr_add32(gadr *dst, const gadr *a, uint32_t value);
void gadr_sub32(gadr *dst, const gadr *a, uint32_t value);
void gadr_inc32(gadr *a, uint32_t value);
void gadr_dec32(gadr *a, uint32_t value);
/* As gadr_inc and gadr_inc32 when a isn't nil (by the mode's test); a nil
 * a stays as it is. */
void gadr_inc_if_not_nil(gadr *a, const gadr *b);
void gadr_inc32_if_not_nil(gadr *a, uint32_t value);

/* a - b as by gadr_sub, as a plain number: in modes 0 and 1 the off of the
 * difference as a signed 16-bit number, in modes 2 and 3 the lo of the
 * difference (as a signed 32-bit number). */
int32_t gadr_diff(const gadr *a, const gadr *b);

/* The smaller (min) or larger (max) of a and b.  Modes 1 and 2 compare lo,
 * and gadr_min and gadr_max then write that lo with hi 0; mode 3 compares
 * by gadr_cmp and copies the whole address.  Mode 0 first gives the message
 * of gadr_no16, then goes on as mode 2.  The pointer forms return a or b
 * itself: on equal addresses gadr_pmin returns b, and gadr_pmax returns b
 * in modes 0 to 2 and a in mode 3. */
void gadr_min(gadr *dst, const gadr *a, const gadr *b);
void gadr_max(gadr *dst, const gadr *a, const gadr *b);
const gadr *gadr_pmin(const gadr *a, const gadr *b);
const gadr *gadr_pmax(const gadr *a, const gadr *b);
/* gen_error("gadr: unimplemented 16bit case"). */
void gadr_no16(void);

/* ---- Text ---------------------------------------------------------------
 * The printers write into the foundation's ring of scratch buffers
 * (gen_get_temp_buf(4, 24)): the text stays valid for the next three such
 * calls of anyone, and the caller doesn't free it.
 *
 *   mode            gadr_print                  gadr_print_nopad
 *   0               "0x%04x" of off             "0x%x" of off
 *   1, seg nonzero  "0x%04x%04x" of seg, off    "0x%x%x" of seg, off
 *   1, seg 0        "0x%04x" of off             "0x%x" of off
 *   2               "0x%08x" of lo              "0x%x" of lo
 *   3               "0x%08x_%08x" of hi, lo     "0x%x_%x" of hi, lo
 *
 * e.g. mode 1, seg 1, off 2: "0x00010002" and "0x12"; nil in mode 3:
 * "0xffffffff_ffffffff". */
const char *gadr_print(const gadr *a);
const char *gadr_print_nopad(const gadr *a);

/* Reads an address of up to 16 hexadecimal digits from text and returns a
 * pointer to the first character not used.  Skips blanks and the
 * characters 8 to 13, then a prefix 0x or 0X, then reads up to 8 digits of
 * either case.  When exactly 8 were read, an underscore behind them is
 * skipped, and if a letter or digit follows, those 8 digits are the high
 * word and up to 8 more digits are read into the low word.  Otherwise the
 * digits read are the low word and the high word is 0.  No digits give 0.
 * So "0x00000001_00000002" and "0x0000000100000002" both give high 1 and
 * low 2, and "  0X1f" gives low 31 with the result at the end of the text.
 * low and high may be null; a null text gives null and zeros. */
const char *gadr_parse_adr(const char *text, uint32_t *low, uint32_t *high);

/* Parses text into *a by gadr_parse_adr and returns the end pointer.  In
 * modes 0 and 1 seg and hi become 0 and off the low 16 bits of low / scale;
 * in mode 2 hi becomes 0 and lo low / scale; in mode 3 hi and lo are high
 * and low as they stand, and a scale other than 1 gives
 * gen_error("[gadr_scan]: illegal scale factor") and the unscaled address.
 * scale must not be 0 (a 0 acts as 1 outside mode 3). */
const char *gadr_scan(const char *text, uint32_t scale, gadr *a);
/* gadr_scan(*text, scale, a), then moves *text to the end pointer.  Returns
 * 1 when that moved it (skipped white space alone counts), else 0. */
int gadr_scanf(const char **text, uint32_t scale, gadr *a);

/* ---- Scaling and alignment ------------------------------------------- */

/* Multiply (up) or divide (down) an address by scale; scale 1 does
 * nothing.  Modes 0 and 1: off, when a isn't nil (seg stays, off wraps at
 * 16 bits).  Mode 2: lo, when it isn't 0xFFFFFFFF.  Mode 3: scale counts as
 * the power of two of its highest set bit, 2^n, and the 64-bit address is
 * shifted left (up) or right (down, logical) by n, nil included.  scale
 * must not be 0; a 0 does nothing. */
void gadr_scale_up(gadr *a, uint32_t scale);
void gadr_scale_down(gadr *a, uint32_t scale);

/* Rounds a down to a multiple of alignment: off in modes 0 and 1 (seg
 * stays), lo in modes 2 and 3 (hi stays).  Nothing for alignment 0 or a nil
 * address. */
void gadr_align(gadr *a, uint32_t alignment);

/* ---- Ranges -------------------------------------------------------------
 * Where a lies against the half-open range [start, end): -1 below it, 0 in
 * it, 1 above it.  A range whose end is below its start wraps past the top
 * of the address space and holds the part from start to the top and the
 * part from the bottom to end.  Such a range is valid only when it covers
 * less than half of the space (end - start, as a signed number of the
 * width, isn't negative); for an address in an invalid wrapping range
 * gadr_warn_for_invalid_wraparound_range warns and the address counts as
 * outside: -1 in the bottom part, 1 in the top part.  A range with start
 * equal to end is empty: -1 below start, 1 from start on.
 *
 * e.g. gadr32_cmprange with start 0xFFFFFFF0, end 0x10: 0xFFFFFFF8 and 8
 * give 0, 0x20 gives -1.  With start 0x80000000, end 0x7FFFFFFF (invalid):
 * 0x7FFFFFFE warns and gives -1, 0x80000001 warns and gives 1. */

/* On 16-bit values: the three arguments are cut to 16 bits, the validity
 * difference is a signed 16-bit number. */
int gadr16_cmprange(uint32_t a, uint32_t start, uint32_t end);
/* On 32-bit values. */
int gadr32_cmprange(uint32_t a, uint32_t start, uint32_t end);
/* On 64-bit addresses (hi, lo), whatever the mode.  A wrap is valid when
 * end's hi plus 1 equals start's hi, or, when the hi words are equal, when
 * end's lo minus start's lo as a signed 32-bit number isn't negative. */
int gadr64_cmprange(const gadr *a, const gadr *start, const gadr *end);

/* By mode:
 *   operation           mode 0                     modes 1, 2              mode 3
 *   cmprange            gadr16_cmprange on off     gadr32_cmprange on lo   gadr64_cmprange
 *   cmprange32(a,s,e)   16 of off, s, e            32 of lo, s, e          1 when hi != 0, else
 *                                                                          as modes 1, 2
 *   cmpblock(a,s,len)   16 of off, s.off,          32 of lo, s.lo,         64 of a, s and
 *                       s.off + len                s.lo + len              gadr_add32(s, len)
 *   cmpblock32(a,s,len) 16 of off, s, s + len      32 of lo, s, s + len    hi 0: as modes 1, 2;
 *                                                                          else 64 of a,
 *                                                                          gadr_assign32(s) and
 *                                                                          gadr_add32 of it, len */
int gadr_cmprange(const gadr *a, const gadr *start, const gadr *end);
int gadr_cmprange32(const gadr *a, uint32_t start, uint32_t end);
int gadr_cmpblock(const gadr *a, const gadr *start, uint32_t length);
int gadr_cmpblock32(const gadr *a, uint32_t start, uint32_t length);

/* gen_warning("gadr: invalid range"). */
void gadr_warn_for_invalid_wraparound_range(void);

/* ---- Internal -----------------------------------------------------------
 * The current mode, initially GADR_MODE_32BIT.  Read it through
 * gadr_get_mode and set it through gadr_set_mode; declared here so that the
 * family's sources share it. */
extern int theMode;

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGADR_H */
