/*
 * indsort.cpp - the quicksort behind tov_sort and tov_stable_sort.
 *
 * The element size is known only at run time, so elements are addressed by
 * byte arithmetic on char pointers, and a stretch is the half-open pair
 * [low, high).  Both sorts share one worker; the stable one differs only in
 * how two elements are ordered (ties broken by input position) and in what
 * a swap moves (the positions go along with the elements).
 */
#include "indsort.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "indgeninit.h"

namespace {

/* Stretches below this many elements get the exchange sort. */
constexpr size_t kExchangeSortBelow = 6;
/* From this many elements up the pivot is a median of medians. */
constexpr unsigned kMedianOfMediansFrom = 36;
/* tov_stable_sort keeps up to this many positions on the stack. */
constexpr unsigned kStackPositions = 64;

/* One sort in progress: the caller's operations and, for the stable sort,
 * the position array whose first entry belongs to the element at origin. */
class Sorter {
 public:
  Sorter(void *context, unsigned size, tov_compare_func compare, tov_swap_func swap,
         int32_t *positions, char *origin)
      : context_(context), size_(size), compare_(compare), swap_(swap),
        positions_(positions), origin_(origin) {}

  /* Sorts [low, high); size_ is not 0. */
  void Sort(char *low, char *high) const {
    if (Count(low, high) < kExchangeSortBelow)
      ExchangeSort(low, high);
    else
      Partition(low, high);
  }

 private:
  size_t Count(const char *low, const char *high) const {
    return static_cast<size_t>(high - low) / size_;
  }

  /* True when the element at a sorts after the one at b.  The stable sort
   * replaces a tie by the difference of the input positions, so no two of
   * its elements are ever equal. */
  bool After(char *a, char *b) const {
    int order = compare_(context_, a, b);
    if (order == 0 && positions_ != nullptr) order = Position(a) - Position(b);
    return order > 0;
  }

  void Exchange(char *a, char *b) const {
    swap_(a, b, size_);
    if (positions_ == nullptr) return;
    int32_t &pa = positions_[Count(origin_, a)];
    int32_t &pb = positions_[Count(origin_, b)];
    int32_t held = pa;
    pa = pb;
    pb = held;
  }

  int32_t Position(const char *element) const { return positions_[Count(origin_, element)]; }

  void ExchangeSort(char *low, char *high) const {
    if (high - low <= static_cast<ptrdiff_t>(size_)) return;
    for (char *i = low; i < high - size_; i += size_)
      for (char *j = i + size_; j < high; j += size_)
        if (After(i, j)) Exchange(i, j);
  }

  /* Partitions around a pivot that stays in the array and follows its
   * element when that is swapped.  Invariant: i <= p <= j, everything below
   * i sorts before p, everything above j after it. */
  void Partition(char *low, char *high) const {
    char *p = static_cast<char *>(choose_pivot(
        context_, low, high, static_cast<unsigned>(Count(low, high)), size_, compare_));
    char *i = low;
    char *j = high - size_;
    while (i < j) {
      while (i < p && !After(i, p)) i += size_;
      while (p < j && !After(p, j)) j -= size_;
      if (i == j) continue;
      Exchange(i, j);
      if (i == p) {
        p = j;
        i += size_;
      } else if (j == p) {
        p = i;
        j -= size_;
      } else {
        i += size_;
        j -= size_;
      }
    }
    if (Count(low, p) > 1) Sort(low, p);
    if (Count(p + size_, high) > 1) Sort(p + size_, high);
  }

  void *context_;
  unsigned size_;
  tov_compare_func compare_;
  tov_swap_func swap_;
  int32_t *positions_;
  char *origin_;
};

char *EndOf(void *base, unsigned count, unsigned size) {
  return static_cast<char *>(base) + static_cast<size_t>(count) * size;
}

}  // namespace

extern "C" void tov_swap_default_cmp(void *a, void *b, unsigned size) {
  unsigned char *x = static_cast<unsigned char *>(a);
  unsigned char *y = static_cast<unsigned char *>(b);
  bool words = size % 4 == 0 && reinterpret_cast<uintptr_t>(a) % 4 == 0 &&
               reinterpret_cast<uintptr_t>(b) % 4 == 0;
  if (words) {
    for (unsigned k = 0; k < size; k += 4) {
      uint32_t held;
      memcpy(&held, x + k, 4);
      memcpy(x + k, y + k, 4);
      memcpy(y + k, &held, 4);
    }
    return;
  }
  for (unsigned k = 0; k < size; k++) {
    unsigned char held = x[k];
    x[k] = y[k];
    y[k] = held;
  }
}

extern "C" void *pick_middle(void *context, void *a, void *b, void *c,
                             tov_compare_func compare) {
  if (compare(context, a, b) > 0) {
    if (compare(context, b, c) < 0) return compare(context, a, c) > 0 ? c : a;
    return b;
  }
  if (compare(context, b, c) > 0) return compare(context, a, c) > 0 ? a : c;
  return b;
}

extern "C" void *choose_pivot(void *context, void *low, void *high, unsigned count,
                              unsigned size, tov_compare_func compare) {
  char *first = static_cast<char *>(low);
  char *last = static_cast<char *>(high) - size;
  unsigned middle_index = count % 2 == 0 ? count / 2 : (count + 1) / 2;
  char *middle = first + static_cast<size_t>(middle_index) * size;
  if (count >= kMedianOfMediansFrom) {
    size_t d = static_cast<size_t>(count / 8) * size;
    char *base = static_cast<char *>(low);
    first = static_cast<char *>(pick_middle(context, base, base + d, base + 2 * d, compare));
    middle = static_cast<char *>(pick_middle(context, middle - d, middle, middle + d, compare));
    last = static_cast<char *>(pick_middle(context, last - 2 * d, last - d, last, compare));
  }
  return pick_middle(context, first, middle, last, compare);
}

extern "C" void tov_do_sort(void *context, void *low, void *high, unsigned size,
                            tov_compare_func compare, tov_swap_func swap) {
  if (size == 0 || high <= low) return;
  Sorter(context, size, compare, swap, nullptr, nullptr)
      .Sort(static_cast<char *>(low), static_cast<char *>(high));
}

extern "C" void tov_do_stable_sort(void *context, int32_t *positions, void *low, void *high,
                                   unsigned size, tov_compare_func compare,
                                   tov_swap_func swap) {
  if (size == 0 || high <= low) return;
  char *origin = static_cast<char *>(low);
  Sorter(context, size, compare, swap, positions, origin)
      .Sort(origin, static_cast<char *>(high));
}

extern "C" void *tov_sort(void *context, void *base, unsigned count, unsigned size,
                          tov_compare_func compare, tov_swap_func swap) {
  if (count == 0) return context;
  if (swap == nullptr) swap = tov_swap_default_cmp;
  tov_do_sort(context, base, EndOf(base, count, size), size, compare, swap);
  return context;
}

extern "C" void *tov_stable_sort(void *context, void *base, unsigned count, unsigned size,
                                 tov_compare_func compare, tov_swap_func swap) {
  if (count == 0) return context;
  if (swap == nullptr) swap = tov_swap_default_cmp;
  int32_t on_stack[kStackPositions];
  int32_t *positions = on_stack;
  if (count > kStackPositions)
    positions = static_cast<int32_t *>(gen_alloc(count, sizeof(int32_t)));
  for (unsigned k = 0; k < count; k++) positions[k] = static_cast<int32_t>(k);
  tov_do_stable_sort(context, positions, base, EndOf(base, count, size), size, compare, swap);
  if (positions != on_stack) gen_free(positions);
  return context;
}
