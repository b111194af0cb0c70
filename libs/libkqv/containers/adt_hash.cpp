/*
 * adt_hash.cpp - the chained hash table of adt_hash.h: search, insertion
 * with growth, removal, walks with self-ending iterators, deep copies and
 * the ready-made callbacks for string keys.  The walk order rules are stated
 * at the top of adt_hash.h; every function here keeps them.
 */
#include "adt_hash.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "indgen_string.h"
#include "indgeninit.h"

/* ---- Layout checks ------------------------------------------------------ */

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
static_assert(offsetof(HTLink_Tag, next) == 0 && offsetof(HTLink_Tag, key) == 8 &&
              offsetof(HTLink_Tag, hash) == 16 && offsetof(HTLink_Tag, object) == 24);
static_assert(offsetof(HTIter_Tag, ht) == 0 && offsetof(HTIter_Tag, bucket) == 8 &&
              offsetof(HTIter_Tag, link) == 16);
static_assert(offsetof(HT_Tag, buckets) == 0 && offsetof(HT_Tag, size) == 8 &&
              offsetof(HT_Tag, numBuckets) == 12 && offsetof(HT_Tag, hashFuncP) == 16 &&
              offsetof(HT_Tag, compareFuncP) == 24 && offsetof(HT_Tag, keyDeleteFuncP) == 32 &&
              offsetof(HT_Tag, objectDeleteFuncP) == 40 &&
              offsetof(HT_Tag, keyCloneFuncP) == 48 && offsetof(HT_Tag, objectCloneFuncP) == 56 &&
              offsetof(HT_Tag, numIters) == 64 && offsetof(HT_Tag, endIter) == 72);
#endif

const uint32_t hash_sizes[HT_NUM_HASH_SIZES] = {
    29,       59,       127,       257,       521,       1049,      2099,
    4201,     8419,     16843,     33703,     67409,     134837,    269683,
    539389,   1078787,  2157587,   4315183,   8630387,   17260781,  34521589,
    69043189, 138086407, 276172823, 552345671, 1104691373};

/* ---- Private helpers ---------------------------------------------------- */

namespace {

using Link = HTLink_Tag;

/* The first entry of hash_sizes not less than count, or 0 when count is
 * above the last entry. */
uint32_t BucketCountFor(uint32_t count) {
  for (uint32_t candidate : hash_sizes) {
    if (candidate >= count) return candidate;
  }
  return 0;
}

bool IsBadTable(HT_PT ht) { return ht == nullptr || ht->buckets == nullptr; }

bool IsBadIter(HTIter_PT iter) { return iter == nullptr || iter->ht == nullptr; }

bool IsEndIter(HTIter_PT iter) { return iter == &iter->ht->endIter; }

Link **NewBucketArray(uint32_t count) {
  return static_cast<Link **>(gen_alloc(count, sizeof(Link *)));
}

/* The first non-empty bucket at or after `from`, or numBuckets. */
uint32_t NextBusyBucket(HT_PT ht, uint32_t from) {
  while (from < ht->numBuckets && ht->buckets[from] == nullptr) from++;
  return from;
}

/* Moves every link into a bucket array of the size that fits ht->size.
 * Links are taken in walk order and pushed on the head of their new chain.
 * When memory runs out, or no larger size exists, the table stays as it
 * is; a later insertion tries again. */
void Grow(HT_PT ht) {
  uint32_t newCount = BucketCountFor(ht->size);
  if (newCount == 0) return;
  Link **newBuckets = NewBucketArray(newCount);
  if (newBuckets == nullptr) return;
  for (uint32_t b = 0; b < ht->numBuckets; b++) {
    Link *link = ht->buckets[b];
    while (link != nullptr) {
      Link *next = link->next;
      Link **head = &newBuckets[link->hash % newCount];
      link->next = *head;
      *head = link;
      link = next;
    }
  }
  gen_free(ht->buckets);
  ht->buckets = newBuckets;
  ht->numBuckets = newCount;
}

/* Runs the delete callbacks on one item and frees its link. */
void DestroyLink(HT_PT ht, Link *link) {
  if (ht->keyDeleteFuncP != nullptr) ht->keyDeleteFuncP(link->key);
  if (ht->objectDeleteFuncP != nullptr) ht->objectDeleteFuncP(link->object);
  gen_free(link);
}

/* One step of a walk, for an iterator that is not the end iterator. */
void StepIter(HTIter_PT *iterP) {
  HTIter_PT iter = *iterP;
  HT_PT ht = iter->ht;
  if (iter->link->next != nullptr) {
    iter->link = iter->link->next;
    return;
  }
  uint32_t bucket = NextBusyBucket(ht, iter->bucket + 1);
  if (bucket < ht->numBuckets) {
    iter->bucket = bucket;
    iter->link = ht->buckets[bucket];
    return;
  }
  ht->numIters--;
  gen_free(iter);
  *iterP = &ht->endIter;
}

}  // namespace

/* ---- Search --------------------------------------------------------------- */

extern "C" Link **SearchLoop(HT_PT ht, const void *key, uint32_t *hash) {
  *hash = ht->hashFuncP(key);
  Link **lead = &ht->buckets[*hash % ht->numBuckets];
  while (*lead != nullptr) {
    Link *link = *lead;
    if (link->hash == *hash && ht->compareFuncP(link->key, key) == 0) break;
    lead = &link->next;
  }
  return lead;
}

/* ---- Tables --------------------------------------------------------------- */

extern "C" HT_PT HT_New(uint32_t approxSize, HashFunc_PT hashFuncP, CompareFunc_PT compareFuncP,
                        DeleteFunc_PT keyDeleteFuncP, DeleteFunc_PT objectDeleteFuncP,
                        CloneFunc_PT keyCloneFuncP, CloneFunc_PT objectCloneFuncP) {
  uint32_t numBuckets = BucketCountFor(approxSize);
  if (numBuckets == 0) {
    fprintf(stderr, "approxSize far too big in HT_New()\n");
    return nullptr;
  }
  if (hashFuncP == nullptr) {
    fprintf(stderr, "HashFunc_PT NULL in HT_New()\n");
    return nullptr;
  }
  if (compareFuncP == nullptr) {
    fprintf(stderr, "CompareFunc_PT NULL in HT_New()\n");
    return nullptr;
  }
  HT_PT ht = static_cast<HT_PT>(gen_alloc(1, sizeof(HT_Tag)));
  if (ht == nullptr) {
    fprintf(stderr, "Out of memory in HT_New()\n");
    return nullptr;
  }
  ht->buckets = NewBucketArray(numBuckets);
  if (ht->buckets == nullptr) {
    gen_free(ht);
    fprintf(stderr, "Out of memory in HT_New()\n");
    return nullptr;
  }
  if ((keyCloneFuncP == nullptr) != (objectCloneFuncP == nullptr)) {
    fprintf(stderr, "No point to providing only one of keyCloneFuncP, objectCloneFuncP\n");
    keyCloneFuncP = nullptr;
    objectCloneFuncP = nullptr;
  }
  ht->size = 0;
  ht->numBuckets = numBuckets;
  ht->hashFuncP = hashFuncP;
  ht->compareFuncP = compareFuncP;
  ht->keyDeleteFuncP = keyDeleteFuncP;
  ht->objectDeleteFuncP = objectDeleteFuncP;
  ht->keyCloneFuncP = keyCloneFuncP;
  ht->objectCloneFuncP = objectCloneFuncP;
  ht->numIters = 0;
  ht->endIter.ht = ht;
  ht->endIter.bucket = 0;
  ht->endIter.link = nullptr;
  return ht;
}

extern "C" void HT_Delete(HT_PT ht) {
  if (ht == nullptr) return;
  if (ht->buckets == nullptr) {
    fprintf(stderr, "HT_Delete() called on NULL or invalid HT_PT\n");
    return;
  }
  for (uint32_t b = 0; b < ht->numBuckets; b++) {
    Link *link = ht->buckets[b];
    while (link != nullptr) {
      Link *next = link->next;
      DestroyLink(ht, link);
      link = next;
    }
  }
  if (ht->numIters != 0) {
    fprintf(stderr,
            "Memory leak in HT_Delete(): HT_Delete() called on HT_PT with active iterators\n");
  }
  gen_free(ht->buckets);
  gen_free(ht);
}

extern "C" HT_PT HT_Clone(HT_PT ht) {
  if (IsBadTable(ht) || ht->keyCloneFuncP == nullptr) return nullptr;
  HT_PT clone = HT_New(ht->size, ht->hashFuncP, ht->compareFuncP, ht->keyDeleteFuncP,
                       ht->objectDeleteFuncP, ht->keyCloneFuncP, ht->objectCloneFuncP);
  if (clone == nullptr) return nullptr;
  HTIter_PT iter = HT_Begin(ht);
  if (iter == nullptr) {
    HT_Delete(clone);
    return nullptr;
  }
  while (iter != &ht->endIter) {
    void *newKey = nullptr;
    void *newObject = nullptr;
    ht->keyCloneFuncP(iter->link->key, &newKey);
    ht->objectCloneFuncP(iter->link->object, &newObject);
    if (!HT_InsertItem(clone, newKey, newObject)) {
      /* A refused copy is still ours to release. */
      if (clone->keyDeleteFuncP != nullptr) clone->keyDeleteFuncP(newKey);
      if (clone->objectDeleteFuncP != nullptr) clone->objectDeleteFuncP(newObject);
      HTIter_Delete(iter);
      HT_Delete(clone);
      return nullptr;
    }
    HTIter_Inc(&iter);
  }
  return clone;
}

extern "C" HT_PT HT_CloneInto(HT_PT dst, HT_PT src) {
  if (dst == nullptr || IsBadTable(dst) || dst->numIters != 0 || IsBadTable(src) ||
      src->keyCloneFuncP == nullptr || BucketCountFor(src->size) == 0) {
    HT_Delete(dst);
    return HT_Clone(src);
  }
  /* HT_Delete's part: the callbacks in walk order; the links are kept. */
  Link *spare = nullptr;
  for (uint32_t b = 0; b < dst->numBuckets; b++) {
    Link *link = dst->buckets[b];
    while (link != nullptr) {
      Link *next = link->next;
      if (dst->keyDeleteFuncP != nullptr) dst->keyDeleteFuncP(link->key);
      if (dst->objectDeleteFuncP != nullptr) dst->objectDeleteFuncP(link->object);
      link->next = spare;
      spare = link;
      link = next;
    }
    dst->buckets[b] = nullptr;
  }
  auto release = [&spare, dst]() {
    while (spare != nullptr) {
      Link *next = spare->next;
      gen_free(spare);
      spare = next;
    }
    dst->size = 0;
    HT_Delete(dst);  // empty by now: only the records go
    return static_cast<HT_PT>(nullptr);
  };

  /* HT_Clone's part: HT_New(src->size), then the clones in src's walk
   * order, each at the tail of its chain.  The count fits src->size, so
   * no insertion grows the table. */
  const uint32_t count = BucketCountFor(src->size);
  if (count != dst->numBuckets) {
    Link **buckets = NewBucketArray(count);
    if (buckets == nullptr) {
      fprintf(stderr, "Out of memory in HT_New()\n");
      return release();
    }
    gen_free(dst->buckets);
    dst->buckets = buckets;
    dst->numBuckets = count;
  }
  dst->size = 0;
  dst->hashFuncP = src->hashFuncP;
  dst->compareFuncP = src->compareFuncP;
  dst->keyDeleteFuncP = src->keyDeleteFuncP;
  dst->objectDeleteFuncP = src->objectDeleteFuncP;
  dst->keyCloneFuncP = src->keyCloneFuncP;
  dst->objectCloneFuncP = src->objectCloneFuncP;
  for (uint32_t b = 0; b < src->numBuckets; b++) {
    for (Link *from = src->buckets[b]; from != nullptr; from = from->next) {
      void *newKey = nullptr;
      void *newObject = nullptr;
      src->keyCloneFuncP(from->key, &newKey);
      src->objectCloneFuncP(from->object, &newObject);
      uint32_t hash = 0;
      Link **tail = SearchLoop(dst, newKey, &hash);
      Link *link = nullptr;
      if (*tail == nullptr) {
        link = spare;
        if (link != nullptr) {
          spare = link->next;
        } else {
          link = static_cast<Link *>(gen_alloc(1, sizeof(Link)));
          if (link == nullptr) fprintf(stderr, "Out of memory in HT_InsertItem()\n");
        }
      }
      if (link == nullptr) {  // a refused copy, as in HT_Clone, is ours to release
        if (dst->keyDeleteFuncP != nullptr) dst->keyDeleteFuncP(newKey);
        if (dst->objectDeleteFuncP != nullptr) dst->objectDeleteFuncP(newObject);
        for (uint32_t c = 0; c < dst->numBuckets; c++) {
          while (Link *made = dst->buckets[c]) {
            dst->buckets[c] = made->next;
            DestroyLink(dst, made);
          }
        }
        return release();
      }
      link->next = nullptr;
      link->key = newKey;
      link->hash = hash;
      link->object = newObject;
      *tail = link;
      dst->size++;
    }
  }
  while (spare != nullptr) {
    Link *next = spare->next;
    gen_free(spare);
    spare = next;
  }
  return dst;
}

extern "C" int HT_GetSize(HT_PT ht) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_GetSize() called on NULL or invalid HT_PT\n");
    return -1;
  }
  return static_cast<int>(ht->size);
}

extern "C" int HT_InsertItem(HT_PT ht, void *key, void *object) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_InsertItem() called on NULL or invalid HT_PT\n");
    return 0;
  }
  uint32_t hash = 0;
  Link **tail = SearchLoop(ht, key, &hash);
  if (*tail != nullptr) return 0;
  Link *link = static_cast<Link *>(gen_alloc(1, sizeof(Link)));
  if (link == nullptr) {
    fprintf(stderr, "Out of memory in HT_InsertItem()\n");
    return 0;
  }
  link->next = nullptr;
  link->key = key;
  link->hash = hash;
  link->object = object;
  *tail = link;
  ht->size++;
  if (ht->size > 2u * ht->numBuckets && ht->numIters == 0) Grow(ht);
  return 1;
}

extern "C" int HT_RemoveItem(HT_PT ht, const void *key) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_RemoveItem() called with NULL or invalid HT_PT\n");
    return 0;
  }
  uint32_t hash = 0;
  Link **lead = SearchLoop(ht, key, &hash);
  Link *link = *lead;
  if (link == nullptr) return 0;
  *lead = link->next;
  ht->size--;
  DestroyLink(ht, link);
  return 1;
}

extern "C" int HT_FindItem(HT_PT ht, const void *key, void **storedKey, void **object) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_FindItem() called with NULL or invalid HT_PT\n");
    return 0;
  }
  uint32_t hash = 0;
  Link *link = *SearchLoop(ht, key, &hash);
  if (link == nullptr) {
    if (storedKey != nullptr) *storedKey = nullptr;
    return 0;
  }
  if (storedKey != nullptr) *storedKey = link->key;
  if (object != nullptr) *object = link->object;
  return 1;
}

extern "C" int HT_GetNumIters(HT_PT ht) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_GetNumIters() called with NULL or invalid HT_PT\n");
    return -1;
  }
  return static_cast<int>(ht->numIters);
}

/* ---- Iterators ------------------------------------------------------------ */

extern "C" HTIter_PT HT_Begin(HT_PT ht) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_Begin() called with NULL or invalid HT_PT\n");
    return nullptr;
  }
  uint32_t bucket = NextBusyBucket(ht, 0);
  if (bucket == ht->numBuckets) return &ht->endIter;
  HTIter_PT iter = static_cast<HTIter_PT>(gen_alloc(1, sizeof(HTIter_Tag)));
  if (iter == nullptr) {
    fprintf(stderr, "Out of memory in HT_Begin()\n");
    return nullptr;
  }
  iter->ht = ht;
  iter->bucket = bucket;
  iter->link = ht->buckets[bucket];
  ht->numIters++;
  return iter;
}

extern "C" HTIter_PT HT_End(HT_PT ht) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_End() called on NULL or invalid HT_PT\n");
    return nullptr;
  }
  return &ht->endIter;
}

extern "C" void HTIter_Inc(HTIter_PT *iter) {
  if (iter == nullptr) {
    fprintf(stderr, "HTIter_Inc called with NULL HTIter_PT *\n");
    return;
  }
  if (IsBadIter(*iter)) {
    fprintf(stderr, "HTIter_Inc called with NULL or invalid *(HTIter_PT *)\n");
    return;
  }
  if (!IsEndIter(*iter)) StepIter(iter);
}

extern "C" void HTIter_IncMultiple(HTIter_PT *iter, int count) {
  if (iter == nullptr) {
    fprintf(stderr, "HTIter_IncMultiple called with NULL HTIter_PT *\n");
    return;
  }
  if (IsBadIter(*iter)) {
    fprintf(stderr, "HTIter_IncMultiple called with NULL or invalid *(HTIter_PT *)\n");
    return;
  }
  for (int i = 0; i < count && !IsEndIter(*iter); i++) StepIter(iter);
}

extern "C" HTIter_PT HTIter_Copy(HTIter_PT iter) {
  if (IsBadIter(iter)) {
    fprintf(stderr, "HTIter_Copy() called with NULL or invalid HTIter_PT\n");
    return nullptr;
  }
  if (IsEndIter(iter)) return iter;
  HTIter_PT copy = static_cast<HTIter_PT>(gen_alloc(1, sizeof(HTIter_Tag)));
  if (copy == nullptr) {
    fprintf(stderr, "Out of memory in HTIter_Copy()\n");
    return nullptr;
  }
  *copy = *iter;
  iter->ht->numIters++;
  return copy;
}

extern "C" void HTIter_Delete(HTIter_PT iter) {
  if (IsBadIter(iter)) {
    fprintf(stderr, "HTIter_Delete() called with NULL or invalid HTIter_PT\n");
    return;
  }
  if (IsEndIter(iter)) return;
  iter->ht->numIters--;
  gen_free(iter);
}

extern "C" int HTIter_GetValue(HTIter_PT iter, void **key, void **object) {
  if (IsBadIter(iter)) {
    fprintf(stderr, "HTIter_GetValue() called with NULL or invalid HTIter_PT\n");
    return 0;
  }
  if (IsEndIter(iter)) {
    if (key != nullptr) *key = nullptr;
    return 0;
  }
  if (key != nullptr) *key = iter->link->key;
  if (object != nullptr) *object = iter->link->object;
  return 1;
}

/* ---- Walks without an iterator -------------------------------------------- */

extern "C" int HT_ForEach(HT_PT ht, VisitFunc_PT visit, void *context) {
  if (IsBadTable(ht) || visit == nullptr) {
    fprintf(stderr, "HT_ForEach() called with NULL or invalid HT_PT or VisitFunc_PT\n");
    return 0;
  }
  for (uint32_t b = 0; b < ht->numBuckets; b++) {
    for (Link *link = ht->buckets[b]; link != nullptr; link = link->next) {
      if (visit(link->key, link->object, context) == 0) return 0;
    }
  }
  return 1;
}

extern "C" int HT_GetWalkPosition(HT_PT ht, const void *key, uint32_t *bucket, uint32_t *depth) {
  if (IsBadTable(ht)) {
    fprintf(stderr, "HT_GetWalkPosition() called with NULL or invalid HT_PT\n");
    return 0;
  }
  const uint32_t hash = ht->hashFuncP(key);
  const uint32_t b = hash % ht->numBuckets;
  uint32_t d = 0;
  for (Link *link = ht->buckets[b]; link != nullptr; link = link->next, d++) {
    if (link->hash == hash && ht->compareFuncP(link->key, key) == 0) {
      if (bucket != nullptr) *bucket = b;
      if (depth != nullptr) *depth = d;
      return 1;
    }
  }
  return 0;
}

/* ---- String callbacks ----------------------------------------------------- */

extern "C" uint32_t HT_StringHashFunc(const void *key) {
  if (key == nullptr) return 0;
  uint32_t hash = 0;
  for (const unsigned char *p = static_cast<const unsigned char *>(key); *p != 0; p++) {
    hash = (hash << 7) | (hash >> 25);
    hash ^= *p;
  }
  return hash;
}

extern "C" int HT_StringCompareFunc(const void *storedKey, const void *key) {
  if (storedKey == nullptr || key == nullptr) return storedKey == key ? 0 : 1;
  return strcmp(static_cast<const char *>(storedKey), static_cast<const char *>(key));
}

extern "C" void HT_StringDeleteFunc(void *key) { gen_free(key); }

extern "C" int HT_StringCloneFunc(const void *key, void **copy) {
  if (copy == nullptr) return 0;
  *copy = gen_copy(static_cast<const char *>(key));
  return 1;
}
