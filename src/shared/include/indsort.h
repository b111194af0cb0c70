/*
 * indsort.h - in-place sorting of arrays of fixed-size elements.
 *
 * tov_sort is a quicksort whose pivot is the median of three elements (of
 * three medians of three from 36 elements up), with an exchange sort for
 * stretches below 6 elements.  tov_stable_sort is the same algorithm made
 * stable by carrying each element's input position along with it.  Unlike
 * qsort, both hand a caller's context to every comparison, and both take a
 * replaceable swap operation.  Neither prints anything nor keeps any state,
 * so sorts of different arrays may run at the same time.
 */
#ifndef RAVELOG_INDSORT_H
#define RAVELOG_INDSORT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Compares the elements at a and b: above 0 when a sorts after b, below 0
 * when it sorts before, 0 when they are equal.  context is the sort's first
 * argument, passed through unchanged. */
typedef int (*tov_compare_func)(void *context, const void *a, const void *b);

/* Exchanges the size bytes at a and b.  It receives no context. */
typedef void (*tov_swap_func)(void *a, void *b, unsigned size);

/* Sorts count elements of size bytes at base into ascending order of
 * compare.  A count of 0 does nothing; a null swap selects
 * tov_swap_default_cmp.  The order of equal elements is not kept.
 * Returns context. */
void *tov_sort(void *context, void *base, unsigned count, unsigned size,
               tov_compare_func compare, tov_swap_func swap);

/* As tov_sort, but equal elements keep their input order.  Up to 64
 * elements it needs no memory beyond the stack; above that it takes
 * 4 * count bytes from gen_alloc for the time of the call (running out of
 * memory ends the program there).  Returns context. */
void *tov_stable_sort(void *context, void *base, unsigned count, unsigned size,
                      tov_compare_func compare, tov_swap_func swap);

/* The default swap: exchanges 32-bit words when size and both addresses are
 * multiples of 4, and bytes otherwise. */
void tov_swap_default_cmp(void *a, void *b, unsigned size);

/* ---- Internal: the steps of the sorts, exported for tests ------------- */

/* The address of the median of the three elements a, b and c, found with
 * two or three comparisons.  Among equal elements the choice follows the
 * order of the tests: b when nothing sorts after anything. */
void *pick_middle(void *context, void *a, void *b, void *c, tov_compare_func compare);

/* The pivot of the count elements of size bytes in [low, high): the median
 * of the first, the middle and the last element.  From 36 elements up each
 * of the three is first replaced by the median of itself and two elements
 * count/8 places away, so up to 12 comparisons are made.  count >= 3. */
void *choose_pivot(void *context, void *low, void *high, unsigned count, unsigned size,
                   tov_compare_func compare);

/* Sorts the elements of size bytes in [low, high) in place; recursive.
 * swap must not be null. */
void tov_do_sort(void *context, void *low, void *high, unsigned size,
                 tov_compare_func compare, tov_swap_func swap);

/* The stable worker: as tov_do_sort, with positions[k] the input position
 * of the k-th element from low.  Equal elements are ordered by position,
 * and each swap of two elements swaps their positions too. */
void tov_do_stable_sort(void *context, int32_t *positions, void *low, void *high,
                        unsigned size, tov_compare_func compare, tov_swap_func swap);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDSORT_H */
