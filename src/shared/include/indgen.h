/*
 * indgen.h - the whole foundation library in one include: start-up and
 * messages, strings, canonical file names, file names, file operations,
 * viewpaths, configuration directories, sorting, quoting and formatting,
 * host services, random numbers, shared libraries and a progress line.
 * Each part has its own header.
 */
#ifndef RAVELOG_INDGEN_H
#define RAVELOG_INDGEN_H

#include "genrand.h"
#include "indconfig.h"
#include "indgen_canon.h"
#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgen_host.h"
#include "indgen_progress.h"
#include "indgen_quote.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indsharedlib.h"
#include "indsort.h"
#include "indview.h"

#endif /* RAVELOG_INDGEN_H */
