/*
 * adt_list.cpp - the doubly linked list of adt_list.h: pushes and pops at
 * either end, walks in either direction with self-ending iterators,
 * deletion and insertion beside an iterator, clearing and copying.  Every
 * directional step indexes ends[], link[] and endIters[] by whichEnd, so
 * the code for both directions is one.
 */
#include "adt_list.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "indgeninit.h"

/* ---- Layout checks ------------------------------------------------------ */

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
static_assert(offsetof(ListElem_Tag, link) == 0 && offsetof(ListElem_Tag, value) == 16);
static_assert(offsetof(ListIter_Tag, list) == 0 && offsetof(ListIter_Tag, elem) == 8);
static_assert(offsetof(List_Tag, deleteFunc) == 0 && offsetof(List_Tag, cloneFunc) == 8 &&
              offsetof(List_Tag, ends) == 16 && offsetof(List_Tag, numEles) == 32 &&
              offsetof(List_Tag, numIters) == 36 && offsetof(List_Tag, endIters) == 40);
#endif

/* ---- Private helpers ---------------------------------------------------- */

namespace {

using Elem = ListElem_Tag;

bool IsBadEnd(int whichEnd) { return whichEnd != 0 && whichEnd != 1; }

/* Which end iterator iter is: 0 or 1, or -1 for an allocated one.
 * REQUIRES: iter->list is not null. */
int EndIterSide(ListIter_PT iter) {
  List_PT list = iter->list;
  if (iter == &list->endIters[0]) return 0;
  if (iter == &list->endIters[1]) return 1;
  return -1;
}

/* An allocated iterator must have both a list and an element; an end
 * iterator has only a list. */
bool IsInvalidIter(ListIter_PT iter) {
  return iter->list == nullptr || (EndIterSide(iter) < 0 && iter->elem == nullptr);
}

ListIter_PT NewIter(List_PT list, Elem *elem) {
  ListIter_PT iter = static_cast<ListIter_PT>(gen_alloc(1, sizeof(ListIter_Tag)));
  if (iter == nullptr) return nullptr;
  iter->list = list;
  iter->elem = elem;
  list->numIters++;
  return iter;
}

void FreeIter(ListIter_PT iter) {
  iter->list->numIters--;
  iter->list = nullptr;
  gen_free(iter);
}

/* List_Push after its checks; false when memory runs out. */
bool PushValue(List_PT list, void *value, int e) {
  Elem *elem = static_cast<Elem *>(gen_alloc(1, sizeof(Elem)));
  if (elem == nullptr) return false;
  list->numEles++;
  elem->link[1 - e] = list->ends[e];
  elem->link[e] = nullptr;
  elem->value = value;
  if (list->ends[e] == nullptr) {
    list->ends[0] = elem;
    list->ends[1] = elem;
  } else {
    list->ends[e]->link[e] = elem;
    list->ends[e] = elem;
  }
  return true;
}

/* ListIter_Next after its checks. */
void StepIter(ListIter_PT *iterP, int e) {
  ListIter_PT iter = *iterP;
  List_PT list = iter->list;
  int side = EndIterSide(iter);
  if (side == e) return;
  if (side == 1 - e) {
    /* Re-entering from the end the walk left by. */
    ListIter_PT entered = List_Begin(list, 1 - e);
    if (entered != nullptr) *iterP = entered;
    return;
  }
  Elem *next = iter->elem->link[e];
  if (next != nullptr) {
    iter->elem = next;
    return;
  }
  *iterP = &list->endIters[e];
  FreeIter(iter);
}

}  // namespace

/* ---- Lists ---------------------------------------------------------------- */

extern "C" List_PT List_New(ListDeleteFunc_PT deleteFunc, ListCloneFunc_PT cloneFunc) {
  List_PT list = static_cast<List_PT>(gen_alloc(1, sizeof(List_Tag)));
  if (list == nullptr) {
    fprintf(stderr, "Out of memory in List_New()\n");
    return nullptr;
  }
  list->deleteFunc = deleteFunc;
  list->cloneFunc = cloneFunc;
  list->ends[0] = nullptr;
  list->ends[1] = nullptr;
  list->numEles = 0;
  list->numIters = 0;
  for (ListIter_Tag &end : list->endIters) {
    end.list = list;
    end.elem = nullptr;
  }
  return list;
}

extern "C" void List_Clear(List_PT list) {
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_Clear() on NULL List_PT\n");
    return;
  }
  Elem *elem = list->ends[0];
  while (elem != nullptr) {
    Elem *next = elem->link[1];
    if (list->deleteFunc != nullptr) list->deleteFunc(elem->value);
    gen_free(elem);
    elem = next;
  }
  if (list->numIters != 0) {
    fprintf(stderr, "Memory Leak: List with active iterators cleared in List_Clear()\n");
  }
  list->ends[0] = nullptr;
  list->ends[1] = nullptr;
  list->numEles = 0;
}

extern "C" void List_Delete(List_PT list) {
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_Delete() on NULL List_PT\n");
    return;
  }
  List_Clear(list);
  /* Poison the ends so that a use after deletion fails loudly. */
  Elem *poison = reinterpret_cast<Elem *>(~static_cast<uintptr_t>(0));
  list->ends[0] = poison;
  list->ends[1] = poison;
  gen_free(list);
}

extern "C" List_PT List_Clone(List_PT list) {
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_Clone() on NULL List_PT\n");
    return nullptr;
  }
  List_PT copy = List_New(list->deleteFunc, list->cloneFunc);
  if (copy == nullptr) {
    fprintf(stderr, "Out of memory in List_Clone()\n");
    return nullptr;
  }
  for (Elem *elem = list->ends[0]; elem != nullptr; elem = elem->link[1]) {
    void *value = elem->value;
    if (list->cloneFunc != nullptr && !list->cloneFunc(elem->value, &value)) {
      fprintf(stderr, "Out of memory in cloneFunc called by List_Clone\n");
      List_Delete(copy);
      return nullptr;
    }
    if (!PushValue(copy, value, 1)) {
      if (list->cloneFunc != nullptr) {
        if (copy->deleteFunc != nullptr) copy->deleteFunc(value);
      } else {
        copy->deleteFunc = nullptr; /* the values are shared with the source */
      }
      fprintf(stderr, "Out of memory in List_Clone()\n");
      List_Delete(copy);
      return nullptr;
    }
  }
  return copy;
}

extern "C" int List_GetSize(List_PT list) {
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_GetSize() on NULL List_PT\n");
    return -1;
  }
  return list->numEles;
}

extern "C" int List_GetNumEles(List_PT list) {
  if (list == nullptr) {
    fprintf(stderr, "List_GetNumEles() called on NULL List_PT\n");
    return -1;
  }
  return list->numEles;
}

extern "C" int List_GetNumIters(List_PT list) {
  if (list == nullptr) {
    fprintf(stderr, "List_GetNumIters() called on NULL List_PT\n");
    return -1;
  }
  return list->numIters;
}

extern "C" int List_Push(List_PT list, void *value, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called List_Push() with !(whichEnd in {0,1})\n");
    return 0;
  }
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_Push() on NULL List_PT\n");
    return 0;
  }
  if (!PushValue(list, value, whichEnd)) {
    fprintf(stderr, "Out of memory in List_Push()\n");
    return 0;
  }
  return 1;
}

extern "C" int List_Pop(List_PT list, void **value, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called List_Pop() with !(whichEnd in {0,1})\n");
    return 0;
  }
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_Pop() on NULL List_PT\n");
    return 0;
  }
  const int e = whichEnd;
  Elem *elem = list->ends[e];
  if (elem == nullptr) return 0;
  list->numEles--;
  if (value != nullptr) *value = elem->value;
  list->ends[e] = elem->link[1 - e];
  if (list->ends[e] != nullptr) {
    list->ends[e]->link[e] = nullptr;
  } else {
    list->ends[1 - e] = nullptr;
  }
  gen_free(elem);
  return 1;
}

extern "C" int List_PeekEnd(List_PT list, void **value, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called List_PeekEnd() with !(whichEnd in {0,1})\n");
    return 0;
  }
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_PeekEnd() on NULL List_PT\n");
    return 0;
  }
  Elem *elem = list->ends[whichEnd];
  if (elem == nullptr) return 0;
  if (value != nullptr) *value = elem->value;
  return 1;
}

extern "C" int List_PeekNFromEnd(List_PT list, int n, void **value, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called List_PeekNFromEnd() with !(whichEnd in {0,1})\n");
    return 0;
  }
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_PeekNFromEnd() on NULL List_PT\n");
    return 0;
  }
  Elem *elem = list->ends[whichEnd];
  for (int i = 0; i < n && elem != nullptr; i++) elem = elem->link[1 - whichEnd];
  if (elem == nullptr) return 0;
  if (value != nullptr) *value = elem->value;
  return 1;
}

/* ---- Iterators ------------------------------------------------------------ */

extern "C" ListIter_PT List_Begin(List_PT list, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called List_Begin() with !(whichEnd in {0,1})\n");
    return nullptr;
  }
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_Begin() on NULL List_PT\n");
    return nullptr;
  }
  if (list->ends[whichEnd] == nullptr) return &list->endIters[1 - whichEnd];
  ListIter_PT iter = NewIter(list, list->ends[whichEnd]);
  if (iter == nullptr) fprintf(stderr, "Out of memory in List_Begin()\n");
  return iter;
}

extern "C" ListIter_PT List_End(List_PT list, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called List_End() with !(whichEnd in {0,1})\n");
    return nullptr;
  }
  if (list == nullptr) {
    fprintf(stderr, "Tried to List_End() on NULL List_PT\n");
    return nullptr;
  }
  return &list->endIters[whichEnd];
}

extern "C" void ListIter_Next(ListIter_PT *iter, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called ListIter_Next() with !(whichEnd in {0,1})\n");
    return;
  }
  if (iter == nullptr) {
    fprintf(stderr, "Tried to ListIter_Next() on NULL ListIter_PT *\n");
    return;
  }
  if (*iter == nullptr) {
    fprintf(stderr, "Tried to ListIter_Next() on NULL *(ListIter_PT *)\n");
    return;
  }
  if (IsInvalidIter(*iter)) {
    fprintf(stderr, "ListIter_Next() called on invalid ListIter_PT *\n");
    return;
  }
  StepIter(iter, whichEnd);
}

extern "C" ListIter_PT ListIter_Copy(ListIter_PT iter) {
  if (iter == nullptr) {
    fprintf(stderr, "Tried to ListIter_Copy() on NULL ListIter_PT\n");
    return nullptr;
  }
  if (IsInvalidIter(iter)) {
    fprintf(stderr, "ListIter_Copy() called on invalid ListIter_PT\n");
    return nullptr;
  }
  if (EndIterSide(iter) >= 0) return iter;
  ListIter_PT copy = NewIter(iter->list, iter->elem);
  if (copy == nullptr) fprintf(stderr, "Out of memory in ListIter_Copy()\n");
  return copy;
}

extern "C" void ListIter_Delete(ListIter_PT iter) {
  if (iter == nullptr) {
    fprintf(stderr, "ListIter_Delete() called on NULL ListIter_PT\n");
    return;
  }
  if (IsInvalidIter(iter)) {
    fprintf(stderr, "ListIter_Delete() called on invalid ListIter_PT\n");
    return;
  }
  if (EndIterSide(iter) < 0) FreeIter(iter);
}

extern "C" int ListIter_GetValue(ListIter_PT iter, void **value) {
  if (iter == nullptr) {
    fprintf(stderr, "ListIter_GetValue() called on NULL ListIter_PT\n");
    return 0;
  }
  if (IsInvalidIter(iter)) {
    fprintf(stderr, "ListIter_GetValue() called on invalid ListIter_PT\n");
    return 0;
  }
  if (EndIterSide(iter) >= 0) return 0;
  if (value != nullptr) *value = iter->elem->value;
  return 1;
}

extern "C" int ListIter_DelCurNext(ListIter_PT *iter, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called ListIter_DelCurNext() with !(whichEnd in {0,1})\n");
    return 0;
  }
  if (iter == nullptr) {
    fprintf(stderr, "ListIter_DelCurNext() called with NULL ListIter_PT *\n");
    return 0;
  }
  if (*iter == nullptr) {
    fprintf(stderr, "ListIter_DelCurNext() called with NULL *(ListIter_PT *)\n");
    return 0;
  }
  if (IsInvalidIter(*iter)) {
    fprintf(stderr, "ListIter_DelCurNext() called with invalid *(ListIter_PT *)");
    return 0;
  }
  if (EndIterSide(*iter) >= 0) return 0;
  List_PT list = (*iter)->list;
  Elem *elem = (*iter)->elem;
  StepIter(iter, whichEnd);
  DeleteThisListElem(list, elem);
  return 1;
}

extern "C" int ListIter_InsBeside(ListIter_PT iter, void *value, int whichEnd) {
  if (IsBadEnd(whichEnd)) {
    fprintf(stderr, "Called ListIter_InsBeside() with !(whichEnd in {0,1})\n");
    return 0;
  }
  if (iter == nullptr) {
    fprintf(stderr, "ListIter_InsBeside() called on NULL ListIter_PT\n");
    return 0;
  }
  if (iter->list == nullptr) {
    fprintf(stderr, "ListIter_InsBeside() called on invalid ListIter_PT\n");
    return 0;
  }
  List_PT list = iter->list;
  const int e = whichEnd;
  const int side = EndIterSide(iter);
  if (side < 0 && iter->elem == nullptr) {
    fprintf(stderr, "ListIter_InsBeside() called with invalid ListIter_PT\n");
    return 0;
  }
  if (side == 0 && e == 0) {
    fprintf(stderr,
            "ListIter_InsBeside() told to insert item before a ListIter_PT which references "
            "one before the beginning of the list - invalid\n");
    return 0;
  }
  if (side == 1 && e == 1) {
    fprintf(stderr,
            "ListIter_InsBeside() told to insert item after a ListIter_PT which references "
            "one after the end of the list - invalid\n");
    return 0;
  }
  /* Beside an end iterator, on the list's side: the near end of the list. */
  if (side >= 0) return List_Push(list, value, side);

  Elem *added = static_cast<Elem *>(gen_alloc(1, sizeof(Elem)));
  if (added == nullptr) {
    fprintf(stderr, "Out of memory in ListIter_InsBeside()\n");
    return 0;
  }
  Elem *elem = iter->elem;
  Elem *neighbour = elem->link[e];
  added->value = value;
  added->link[1 - e] = elem;
  added->link[e] = neighbour;
  if (neighbour != nullptr) neighbour->link[1 - e] = added;
  elem->link[e] = added;
  list->numEles++;
  if (list->ends[e] == elem) list->ends[e] = added;
  return 1;
}

/* ---- Private, exported for tests ------------------------------------------- */

extern "C" void DeleteThisListElem(List_PT list, Elem *elem) {
  Elem *front = elem->link[0];
  Elem *back = elem->link[1];
  if (front != nullptr) front->link[1] = back;
  if (back != nullptr) back->link[0] = front;
  if (list->deleteFunc != nullptr) list->deleteFunc(elem->value);
  if (list->ends[0] == elem) list->ends[0] = back;
  if (list->ends[1] == elem) list->ends[1] = front;
  list->numEles--;
  gen_free(elem);
}
