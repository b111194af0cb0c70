/*
 * indgen_string.h - the foundation's plain string layer: comparison without
 * regard to ASCII case and the copy family that builds new heap strings.
 * Every returned string comes from gen_alloc and is freed with gen_free.
 */
#ifndef RAVELOG_INDGEN_STRING_H
#define RAVELOG_INDGEN_STRING_H

#ifdef __cplusplus
extern "C" {
#endif

/* True when a and b agree over their first n characters, ASCII case folded.
 * With a null pointer the result is whether both are null.  The walk stops at
 * the end of a or after n characters; the result is then true when n ran out
 * or when the two current characters are equal as they stand. */
int gen_strnequal(const char *a, const char *b, int n);

/* New copy of s; null for null. */
char *gen_copy(const char *s);

/* New zero-filled string of room n + 1 holding up to n characters of s;
 * null for a null s or a negative n. */
char *gen_copyn(const char *s, int n);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_STRING_H */
