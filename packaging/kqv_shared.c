/*
 * kqv_shared.c - the shared libkqv has no code of its own: it is the
 * database library, GFile, target addresses, the containers and the
 * foundation, linked whole (packaging/CMakeLists.txt), exporting the public
 * C interface listed in packaging/kqv.map.
 */
