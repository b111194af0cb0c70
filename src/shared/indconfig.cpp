/*
 * indconfig.cpp - source roots and configuration directories.  No source
 * roots are kept yet, so clean-up has nothing to release.
 */
#include "indconfig.h"

extern "C" void gen_sourceroot_cleanup(void) {}
