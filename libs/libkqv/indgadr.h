/*
 * indgadr.h - target addresses whatever the target's address width.
 *
 * The width of an address is a mode.  Every mode has a number (used in
 * memory, e.g. GFile's adr_mode), a name (for people) and an encoding (the
 * byte that a GFile header holds):
 *
 *   number  name            encoding  address form
 *   0       "16bit"         2         16-bit offset
 *   1       "16bit-16seg"   66        16-bit segment and 16-bit offset
 *   2       "32bit"         4         32-bit address
 *   3       "64bit"         8         64-bit address
 *
 * This header holds the mode table and the two conversions between mode
 * numbers and encodings that the GFile header needs.
 *
 * Errors: the functions here never fail; an unknown argument gives one
 * message through gen_error and a fixed fallback result, and the program
 * goes on.
 */
#ifndef RAVELOG_INDGADR_H
#define RAVELOG_INDGADR_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Modes ------------------------------------------------------------- */
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

/* ---- Modes and their header encodings -------------------------------- */
/* The encoding of mode (2, 66, 4 or 8).  A mode outside the table gives
 * gen_error("[gadr_encoding_from_mode]: unknown mode!") and the encoding of
 * 32bit, 4. */
int gadr_encoding_from_mode(int mode);

/* The mode whose encoding is the low 8 bits of encoding (so 0x142 gives
 * mode 1).  Any other byte gives
 * gen_error("[gadr_mode_from_encoding]: unknown mode!") and the mode 32bit,
 * 2. */
int gadr_mode_from_encoding(int encoding);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGADR_H */
