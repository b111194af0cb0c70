/*
 * adt_list.h - a double-ended doubly linked list of opaque values, with
 * iterators that walk either way, count themselves on the list and end
 * themselves at the ends.  The event database's read side keeps decoded
 * events and their state changes in such lists.
 *
 * Direction: every operation with a direction takes whichEnd, 0 for the
 * front and 1 for the back.  A push at 1 appends; an iterator moved with 1
 * walks from front to back.
 *
 * Errors: a bad whichEnd, a null list or iterator, an invalid iterator and
 * lack of memory are checked in that order; each writes one line naming the
 * operation straight to stderr (one of them without a line end, as the
 * function's comment says) and the operation returns 0, null or -1.
 * Nothing here ends the process.  An empty list is not an error.
 */
#ifndef RAVELOG_ADT_LIST_H
#define RAVELOG_ADT_LIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct List_Tag *List_PT;

/* An iterator stands on one element, or is one of the list's two end
 * iterators: List_End(list, 0), one before the front, and List_End(list, 1),
 * one after the back.  End iterators are embedded in the list, never
 * allocated and never counted.  Rules of a walk:
 *   - List_Begin and ListIter_Copy hand out allocated iterators, counted in
 *     List_GetNumIters.  ListIter_Next that steps past the last element in
 *     its direction frees the record itself and turns the handle into the
 *     end iterator of that side; the walk then needs nothing more.  A walk
 *     that stops early must ListIter_Delete its iterator.
 *   - Moving an end iterator towards the list re-enters it: ListIter_Next
 *     (&it, 0) on List_End(list, 1) allocates an iterator on the back
 *     element.  Moving it further outwards does nothing.
 *   - Iterators are not registered, only counted, so nothing can repair
 *     them: List_Push, ListIter_InsBeside and the removal of other elements
 *     leave an iterator valid (an element added ahead of it will be seen),
 *     but an iterator whose element is popped or deleted through another
 *     iterator must not be used again.  List_Clear and List_Delete with
 *     live iterators print a leak message and go on.
 *   - Handles are compared with List_End by identity. */
typedef struct ListIter_Tag *ListIter_PT;

/* Releases a value whose element the list deletes. */
typedef void (*ListDeleteFunc_PT)(void *value);
/* Stores a copy of value in *copy; nonzero for success. */
typedef int (*ListCloneFunc_PT)(const void *value, void **copy);

/* ---- Lists --------------------------------------------------------------- */

/* A new empty list.  deleteFunc (may be null) runs on a value when its
 * element is deleted; cloneFunc (may be null) serves List_Clone.  Null when
 * memory runs out.  The caller ends the list with List_Delete. */
List_PT List_New(ListDeleteFunc_PT deleteFunc, ListCloneFunc_PT cloneFunc);
/* Deletes every element from front to back, running deleteFunc on each
 * value.  With live iterators it prints a leak message and clears all the
 * same; the iterator count is kept, so the message comes again next time. */
void List_Clear(List_PT list);
/* List_Clear, then frees the list. */
void List_Delete(List_PT list);
/* A copy in the same order with the same callbacks: each value passes
 * through cloneFunc, or is shared when there is none.  Null when cloneFunc
 * fails (after a message; the partial copy is deleted) or memory runs out.
 * The caller owns the result. */
List_PT List_Clone(List_PT list);
/* The number of elements; -1 for a null list.  The two differ only in the
 * message they give on a null list. */
int List_GetSize(List_PT list);
int List_GetNumEles(List_PT list);
/* The number of live allocated iterators; -1 for a null list. */
int List_GetNumIters(List_PT list);

/* Adds value at end whichEnd; 1, or 0 on failure. */
int List_Push(List_PT list, void *value, int whichEnd);
/* Removes the element at end whichEnd and hands its value to the caller in
 * *value (deleteFunc does not run); 1, or 0 if the list is empty (silently)
 * or on failure.  value may be null. */
int List_Pop(List_PT list, void **value, int whichEnd);
/* 1 and the value at end whichEnd in *value (borrowed); 0 if empty or on
 * failure.  value may be null. */
int List_PeekEnd(List_PT list, void **value, int whichEnd);
/* 1 and the value n elements in from end whichEnd (0 is that end) in
 * *value; 0 if the list is shorter, empty, or on failure.  A negative n
 * counts as 0.  value may be null. */
int List_PeekNFromEnd(List_PT list, int n, void **value, int whichEnd);

/* ---- Iterators -------------------------------------------------------------
 * A walk from front to back:
 *     for (it = List_Begin(list, 0); it != List_End(list, 1); ListIter_Next(&it, 1))
 *         ListIter_GetValue(it, &value);                                          */

/* An allocated iterator on the element at end whichEnd; for an empty list
 * List_End(list, 1 - whichEnd), so that a walk away from whichEnd ends at
 * once.  Null on failure. */
ListIter_PT List_Begin(List_PT list, int whichEnd);
/* The end iterator beyond end whichEnd; null on failure. */
ListIter_PT List_End(List_PT list, int whichEnd);
/* Moves *iter one element towards whichEnd (see the walk rules at
 * ListIter_PT). */
void ListIter_Next(ListIter_PT *iter, int whichEnd);
/* A new iterator at the same place; an end iterator is returned as it is.
 * Null on failure. */
ListIter_PT ListIter_Copy(ListIter_PT iter);
/* Ends an iterator that stopped short of the end; the handle is not used
 * again.  Does nothing on an end iterator. */
void ListIter_Delete(ListIter_PT iter);
/* 1 and the element's value in *value (borrowed); 0 on an end iterator
 * (silently, *value left alone) or on failure.  value may be null. */
int ListIter_GetValue(ListIter_PT iter, void **value);
/* Deletes the element under *iter (running deleteFunc) after moving *iter
 * one step towards whichEnd, which may end it at the end iterator.  1, or 0
 * on an end iterator (silently) or on failure.  The invalid-iterator message
 * of this function has no line end. */
int ListIter_DelCurNext(ListIter_PT *iter, int whichEnd);
/* Inserts value next to iter on the whichEnd side; iter stays where it is.
 * On an end iterator the value goes to the near end of the list (beside
 * List_End(list, 1) towards the front appends); inserting outside an end
 * iterator is refused.  1, or 0 on failure. */
int ListIter_InsBeside(ListIter_PT iter, void *value, int whichEnd);

/* ---- Implementation details ------------------------------------------------
 * The records are visible so that tests can check links and ends; callers
 * use only the functions above.  Indexing by whichEnd rests on this layout:
 * ends[e], link[e] and endIters[e] all lie in the direction of end e. */

struct ListElem_Tag {
  struct ListElem_Tag *link[2]; /* [0] towards the front, [1] towards the back */
  void *value;
};

struct ListIter_Tag {
  List_PT list;               /* the list; null marks a deleted record */
  struct ListElem_Tag *elem;  /* the element; null only in end iterators */
};

struct List_Tag {
  ListDeleteFunc_PT deleteFunc; /* may be null */
  ListCloneFunc_PT cloneFunc;   /* may be null */
  struct ListElem_Tag *ends[2]; /* front and back element; both null when empty */
  int32_t numEles;              /* number of elements */
  int32_t numIters;             /* allocated iterators not yet ended */
  struct ListIter_Tag endIters[2]; /* one before the front, one after the back */
};

/* Unlinks elem from list, runs deleteFunc on its value, moves the ends that
 * were elem, and frees it.  REQUIRES: elem is an element of list. */
void DeleteThisListElem(List_PT list, struct ListElem_Tag *elem);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_ADT_LIST_H */
