/*
 * indview_internal.h - what the source files of the viewpath layer share
 * and nobody else needs: the activity test, the debug report, the root
 * match, and two small owners of heap strings.  C++ only; the C surface is
 * indview.h.
 */
#ifndef RAVELOG_INDVIEW_INTERNAL_H
#define RAVELOG_INDVIEW_INTERNAL_H

#include <cerrno>

#include "indgeninit.h"
#include "indview.h"

namespace indview {

/* Whether a wrapper does its viewpath work.  V_flag is set only together
 * with at least one node and cleared when the nodes go, so this one test
 * stands for "V_flag set and V_ndir above 0". */
inline bool Active() { return V_flag != 0; }

/* gen_info(format, ...) when V_debug_info is set; nothing otherwise. */
void Debug(const char *format, ...) GEN_PRINTF_LIKE(1, 2);

/* Where name goes on behind root: root's whole text must begin name, and
 * name must end there, go on with '/', or root must end in '/'.  Returns
 * the part behind any '/' there (possibly empty), or null for no match or
 * a null argument. */
const char *BehindRoot(const char *root, const char *name);

/* Owns one heap string from gen_alloc.  Releasing it keeps errno, so a
 * wrapper may return with the errno of its last system call. */
class HeapString {
 public:
  explicit HeapString(char *text = nullptr) : text_(text) {}
  ~HeapString() { Reset(nullptr); }
  HeapString(const HeapString &) = delete;
  HeapString &operator=(const HeapString &) = delete;

  const char *get() const { return text_; }
  char *release() {
    char *text = text_;
    text_ = nullptr;
    return text;
  }
  void Reset(char *text) {
    const int saved = errno;
    gen_free(text_);
    errno = saved;
    text_ = text;
  }

 private:
  char *text_;
};

/* A caller's name with a leading "^" or "^/" replaced by the first node
 * joined with the rest ('/' behind the '^' skipped, so the name stays under
 * the root).  Only while the layer is active; other names pass as they
 * are. */
class AnchoredName {
 public:
  explicit AnchoredName(const char *name);
  const char *get() const { return owned_.get() != nullptr ? owned_.get() : name_; }

 private:
  const char *name_;
  HeapString owned_;
};

}  // namespace indview

#endif /* RAVELOG_INDVIEW_INTERNAL_H */
