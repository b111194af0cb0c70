/*
 * adt_hash.h - a chained hash table of opaque keys and objects with
 * caller-supplied hash, compare, delete and clone callbacks, and iterators
 * that end themselves.
 *
 * The event database writes its snapshots of state objects by walking such
 * tables, so the walk order is part of what the system stores and is fixed
 * exactly here: buckets in ascending index, each chain from head to tail;
 * new items go to the tail of their chain; growth takes the first entry of
 * hash_sizes not less than the item count and pushes each link, in the old
 * walk order, onto the head of its new chain (so items that meet in one new
 * bucket stand there in reverse); live iterators hold growth back.
 *
 * Errors: an operation given a bad table or iterator, or short of memory,
 * writes one line naming itself straight to stderr and returns 0, null or -1
 * as its comment says.  Nothing here ends the process.  A table is bad when
 * it is null or its bucket array is null; an iterator is bad when it is null
 * or its table pointer is null.  All hashes, bucket indexes and counts are
 * 32-bit unsigned.
 */
#ifndef RAVELOG_ADT_HASH_H
#define RAVELOG_ADT_HASH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HT_Tag *HT_PT;

/* An iterator stands on one item of its table, or is the table's end
 * iterator (HT_End), which is embedded in the table, never allocated and
 * never counted.  Rules of a walk:
 *   - HT_Begin and HTIter_Copy hand out allocated iterators, counted in
 *     HT_GetNumIters.  HTIter_Inc that steps off the last item frees the
 *     allocated record itself and turns the handle into HT_End(ht); the walk
 *     then needs nothing more.  A walk that stops early must HTIter_Delete
 *     its iterator, or the table keeps counting it.
 *   - While any iterator is live the table does not grow, so insertions
 *     during a walk are allowed: an item inserted ahead of the iterator will
 *     be seen, one inserted behind it will not.
 *   - Any item may be removed during a walk except one that a live iterator
 *     stands on; removal is not checked against iterators and does not
 *     repair them.
 *   - Iterators are compared by handle, and only against HT_End. */
typedef struct HTIter_Tag *HTIter_PT;

/* The 32-bit hash of a key. */
typedef uint32_t (*HashFunc_PT)(const void *key);
/* Takes a stored key and the key searched for, in that order; 0 means equal.
 * Only equality matters to the table. */
typedef int (*CompareFunc_PT)(const void *storedKey, const void *key);
/* Releases a key or an object the table gives up. */
typedef void (*DeleteFunc_PT)(void *keyOrObject);
/* Stores a copy of a key or an object in *copy; the result is not used. */
typedef int (*CloneFunc_PT)(const void *keyOrObject, void **copy);

/* The allowed bucket counts, ascending. */
#define HT_NUM_HASH_SIZES 26
extern const uint32_t hash_sizes[HT_NUM_HASH_SIZES];

/* ---- Tables ------------------------------------------------------------ */

/* A new empty table with hash_sizes[0] buckets for an approxSize of 0, else
 * the first entry of hash_sizes not less than approxSize.  hashFuncP and
 * compareFuncP are required.  The delete callbacks may be null; they run on
 * each key and object when its item is removed or the table deleted, which
 * makes the table their owner.  The clone callbacks serve HT_Clone and come
 * in pairs: if only one is given, a message is printed and the table is made
 * with neither.  Null (and a message) when approxSize is above the last
 * entry, a required callback is missing, or memory runs out.  The caller
 * ends the table with HT_Delete. */
HT_PT HT_New(uint32_t approxSize, HashFunc_PT hashFuncP, CompareFunc_PT compareFuncP,
             DeleteFunc_PT keyDeleteFuncP, DeleteFunc_PT objectDeleteFuncP,
             CloneFunc_PT keyCloneFuncP, CloneFunc_PT objectCloneFuncP);

/* Runs the delete callbacks on every item in walk order (key before object),
 * then frees the table.  A null ht is ignored silently.  With live iterators
 * it prints a leak message and deletes the table all the same; those
 * iterators must not be used again. */
void HT_Delete(HT_PT ht);

/* A deep copy: a new table with the same callbacks and as many buckets as
 * HT_New(HT_GetSize(ht)) gives, filled by cloning each key and object in
 * walk order and inserting the copies.  The clone's walk order may differ
 * from the source's, since its bucket count may.  Null, silently, for a
 * null or bad table or one without clone callbacks; null also when memory
 * runs out (the partial copy is deleted).  The caller owns the result. */
HT_PT HT_Clone(HT_PT ht);

/* HT_Delete(dst) followed by HT_Clone(src), in effect and in result, for a
 * table that is replaced by a clone again and again: dst's delete callbacks
 * run on each of its items in walk order, then dst becomes what HT_Clone(src)
 * would give (src's callbacks, its bucket count, clones of src's items in
 * src's walk order).  The records of dst (the table, its bucket array when
 * the count stays, its links) carry the clone instead of being freed and
 * allocated anew, so the result is usually dst itself.  Null when HT_Clone
 * would give null; dst is gone then all the same.  A null or bad dst, or
 * one with live iterators, goes through HT_Delete and HT_Clone as they are.
 * The caller owns the result. */
HT_PT HT_CloneInto(HT_PT dst, HT_PT src);

/* The number of items; -1 for a bad table. */
int HT_GetSize(HT_PT ht);

/* Inserts key with object at the tail of its chain and returns 1; may grow
 * the table (see the top of this file).  Returns 0 when an equal key is
 * present (nothing changes, no callback runs), on a bad table or when
 * memory runs out; a refused key and object stay the caller's. */
int HT_InsertItem(HT_PT ht, void *key, void *object);

/* Removes the item whose key equals key: runs the key delete callback on
 * the stored key, then the object delete callback on the stored object, and
 * returns 1.  key serves only for the search.  0 when absent or on a bad
 * table.  The order of the other items is kept. */
int HT_RemoveItem(HT_PT ht, const void *key);

/* 1 when an equal key is stored: *storedKey and *object receive the stored
 * pair (borrowed; valid until the item is removed).  0 when absent, setting
 * *storedKey to null and leaving *object alone; 0 on a bad table.  Either
 * out-argument may be null. */
int HT_FindItem(HT_PT ht, const void *key, void **storedKey, void **object);

/* ---- Iterators ----------------------------------------------------------
 * A walk:  for (it = HT_Begin(ht); it != HT_End(ht); HTIter_Inc(&it))
 *              HTIter_GetValue(it, &key, &object);                        */

/* An allocated iterator on the first item in walk order; for an empty table
 * the end iterator (nothing allocated).  Null on a bad table or when memory
 * runs out. */
HTIter_PT HT_Begin(HT_PT ht);
/* The table's end iterator; null for a bad table. */
HTIter_PT HT_End(HT_PT ht);
/* Moves *iter to the next item in walk order.  Past the last item the
 * iterator is freed and *iter becomes the end iterator; on the end iterator
 * it does nothing. */
void HTIter_Inc(HTIter_PT *iter);
/* HTIter_Inc count times, stopping at the end; count <= 0 does nothing. */
void HTIter_IncMultiple(HTIter_PT *iter, int count);
/* A new iterator at the same place, or the end iterator itself when given
 * it.  Null on a bad iterator or when memory runs out. */
HTIter_PT HTIter_Copy(HTIter_PT iter);
/* Ends an iterator that stopped short of the end; the handle is not used
 * again.  Does nothing on the end iterator. */
void HTIter_Delete(HTIter_PT iter);
/* 1 with the item's key and object (borrowed) in *key and *object.  On the
 * end iterator 0, setting *key to null and leaving *object alone; 0 on a bad
 * iterator.  Either out-argument may be null. */
int HTIter_GetValue(HTIter_PT iter, void **key, void **object);
/* The number of live allocated iterators; -1 for a bad table. */
int HT_GetNumIters(HT_PT ht);

/* ---- Walks without an iterator ------------------------------------------ */

/* Called with each item's key and object (borrowed) and the walk's
 * context; nonzero goes on, 0 stops the walk after this item. */
typedef int (*VisitFunc_PT)(void *key, void *object, void *context);

/* Calls visit on every item in walk order, allocating nothing, for walks
 * that run often.  visit may change what keys and objects point at (never
 * a key's hash or equality) but must not insert or remove items.  Returns
 * 1 when every item was visited, 0 when visit stopped the walk; 0 also,
 * with a message, for a bad table or a null visit. */
int HT_ForEach(HT_PT ht, VisitFunc_PT visit, void *context);

/* Where the item whose key equals key stands in walk order: its bucket in
 * *bucket and its place in that bucket's chain (0 for the head) in *depth.
 * Items compare in walk order by (bucket, depth).  Returns 1, or 0 when
 * the key is absent (outputs untouched); 0 with a message for a bad table.
 * The position holds until the next insertion or removal. */
int HT_GetWalkPosition(HT_PT ht, const void *key, uint32_t *bucket, uint32_t *depth);

/* ---- Callbacks for keys that are NUL-terminated strings ----------------- */

/* 0 for null; else, for each byte as unsigned, rotate left by 7 and
 * exclusive-or the byte in: "abc" gives 0x187163. */
uint32_t HT_StringHashFunc(const void *key);
/* strcmp; a null key equals only another null key. */
int HT_StringCompareFunc(const void *storedKey, const void *key);
/* gen_free. */
void HT_StringDeleteFunc(void *key);
/* *copy = gen_copy(key); returns 1. */
int HT_StringCloneFunc(const void *key, void **copy);

/* ---- Implementation details ---------------------------------------------
 * The records are visible so that tests can check bucket counts and chains;
 * callers use only the functions above. */

struct HTLink_Tag {
  struct HTLink_Tag *next; /* next in the chain, null at the tail */
  void *key;
  uint32_t hash;           /* full hash of key, kept for growth and search */
  void *object;
};

struct HTIter_Tag {
  HT_PT ht;                 /* the table */
  uint32_t bucket;          /* bucket of link */
  struct HTLink_Tag *link;  /* the item; null only in the end iterator */
};

struct HT_Tag {
  struct HTLink_Tag **buckets; /* numBuckets chain heads */
  uint32_t size;               /* number of items */
  uint32_t numBuckets;         /* always an entry of hash_sizes */
  HashFunc_PT hashFuncP;
  CompareFunc_PT compareFuncP;
  DeleteFunc_PT keyDeleteFuncP;       /* may be null */
  DeleteFunc_PT objectDeleteFuncP;    /* may be null */
  CloneFunc_PT keyCloneFuncP;         /* null exactly when objectCloneFuncP is */
  CloneFunc_PT objectCloneFuncP;
  uint32_t numIters;           /* allocated iterators not yet ended */
  struct HTIter_Tag endIter;   /* ht is this table, bucket 0, link null */
};

/* Finds key: computes its hash into *hash and returns the address of the
 * link pointer that leads to the matching link, or, when no link matches,
 * the address of the null pointer at the tail of key's chain.  A link
 * matches when its stored hash equals the hash and compareFuncP(stored key,
 * key) is 0; compareFuncP is not called on unequal hashes.
 * REQUIRES: ht is a good table. */
struct HTLink_Tag **SearchLoop(HT_PT ht, const void *key, uint32_t *hash);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_ADT_HASH_H */
