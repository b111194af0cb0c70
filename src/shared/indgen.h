/*
 * indgen.h - the whole foundation library in one include: start-up and
 * messages, strings, canonical file names, file names, file operations,
 * viewpaths, configuration directories and host services.  Each part has
 * its own header.
 */
#ifndef RAVELOG_INDGEN_H
#define RAVELOG_INDGEN_H

#include "indconfig.h"
#include "indgen_canon.h"
#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgen_host.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

#endif /* RAVELOG_INDGEN_H */
