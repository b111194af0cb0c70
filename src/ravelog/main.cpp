/*
 * main.cpp - the entry of ravelog: reads the command line, starts the
 * foundation library and converts one corefile.  Everything else is in
 * ravelog_*.cpp (see ravelog.h).
 */
#include <cstring>

#include "indgen.h"
#include "ravelog.h"

/* ravelog [-h] [-d] corefile KQfile.  Options count only in the first
 * place: -h (two characters, any case, longer words too) asks for the usage
 * text before anything is started; -d (exactly) asks for the listing. */
int main(int argc, char **argv) {
  lastTimeStamp[0] = 0;
  lastTimeStamp[1] = 0;
  if (argc > 1 && gen_strnequal(argv[1], "-h", 2)) {
    PrintUsage(argv[0]);
    return 0;
  }
  gen_init(argv[0], 0, 0);
  if (argc > 1 && strcmp(argv[1], "-d") == 0) {
    debug = 1;
    argc--;
  }
  if (argc != 3) {
    PrintUsage(argv[0]);
    return 1;
  }
  if (debug) {
    argv[1] = argv[2];
    argv[2] = argv[3];
  }
  cv_ParseRawEventFile(argv[1], argv[2]);
  return 0;
}
