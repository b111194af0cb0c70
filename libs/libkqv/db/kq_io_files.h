/*
 * kq_io_files.h - the names and files of a database while a handle is
 * being made.  kq_OpenForUse and kq_OpenForCreation gather them here and
 * hand them to the handle once all are open; if they return early, the
 * destructor closes the files that are open and frees the names (files
 * already made stay on the disk).  C++ only; internal to libkqv.
 */
#ifndef RAVELOG_KQ_IO_FILES_H
#define RAVELOG_KQ_IO_FILES_H

#include <initializer_list>

#include "indgen_string.h"
#include "indgeninit.h"
#include "indgfile.h"
#include "kq_io.h"
#include "kq_io_format.h"

namespace kqio {

struct DatabaseFiles {
  char *streamName = nullptr;
  char *indexName = nullptr;
  char *headerName = nullptr;
  GFile *streamFile = nullptr;
  GFile *indexFile = nullptr;
  GFile *headerFile = nullptr;

  DatabaseFiles() = default;
  DatabaseFiles(const DatabaseFiles &) = delete;
  DatabaseFiles &operator=(const DatabaseFiles &) = delete;
  ~DatabaseFiles() {
    for (GFile *file : {streamFile, indexFile, headerFile}) {
      if (file != nullptr) gf_close(file);
    }
    gen_free(streamName);
    gen_free(indexName);
    gen_free(headerName);
  }

  /* The three names: base with each file's suffix.  False when one of
   * them can't be made. */
  bool NameAfter(const char *base) {
    streamName = gen_concat(base, KQ_SUFFIX_STREAM);
    indexName = gen_concat(base, KQ_SUFFIX_INDEX);
    headerName = gen_concat(base, KQ_SUFFIX_HEADER);
    return streamName != nullptr && indexName != nullptr && headerName != nullptr;
  }

  /* Gives the names and files to db, which closes and frees them from now on. */
  void HandOver(kq_DB *db) {
    db->streamFile = streamFile;
    db->indexFile = indexFile;
    db->headerFile = headerFile;
    db->streamName = streamName;
    db->indexName = indexName;
    db->headerName = headerName;
    streamFile = indexFile = headerFile = nullptr;
    streamName = indexName = headerName = nullptr;
  }
};

}  // namespace kqio

#endif /* RAVELOG_KQ_IO_FILES_H */
