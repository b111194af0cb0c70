/*
 * indview.h - the file-system calls of the foundation library as seen
 * through a viewpath.
 *
 * A viewpath overlays several directory trees, the nodes, so that they look
 * like one.  The environment variable NVPATH lists them, local tree first,
 * separated by ':' or ';'.  Through the wrappers below a file of a later
 * node is seen as if it stood in the local tree: a read finds it wherever
 * it is, a write never touches a later node and goes to the local tree,
 * after the whole file has been copied there when the open needs its old
 * contents (copy-on-write).
 *
 * gen_init starts the layer with its viewpath mode: 0 off, 1 slow, 2 fast.
 * Slow mode copies a file also for a write-only open, fast mode doesn't.
 * With viewpathing off, or with no node, every wrapper is the plain system
 * call on the caller's name at the cost of one test of V_flag.
 *
 * While viewpathing is active, a name that is exactly "^" or begins with
 * "^/" is anchored at the root: every wrapper first replaces it by
 * gen_sconcat(first node, what follows "^/").  Other names beginning with
 * '^' are ordinary names, and with viewpathing off '^' means nothing.
 *
 * Environment (read by gen_viewpathing_init; names in the V_*_variable
 * pointers below):
 *   NVPATH        the node list; missing or empty keeps viewpathing off
 *   TOV_VP_DEBUG  non-empty: report what the layer does through gen_info
 *   TOV_VP_OFF    non-empty: a non-zero mode becomes 0
 *   TOV_VP_SLOW   non-empty: mode 2 becomes 1
 *   TOV_VP_XSW    atoi into V_xsw_flags; bit 0 ignores an alternate root
 *
 * Errors: the wrappers return what their system call returns, with errno as
 * that call left it unless a comment says otherwise, and print nothing but
 * the debug reports.  EPERM means: the thing exists in a later node, and
 * this operation can't act on it there.  A null name fails with EFAULT
 * (gen_fopen and gen_freopen return null).
 *
 * Limits: at most V_MAXNODES nodes; the value of NVPATH must fit Viewpath
 * (V_PATHSIZE - 1 characters); V_compath and V2_compath keep at most
 * V_MAXCOMPONENTS components.  What happens at each limit is told where it
 * applies; nothing ever writes past a fixed buffer.
 *
 * State: inactive until gen_viewpathing_init finds at least one node in
 * mode 1 or 2; gen_viewpathing_cleanup makes it inactive again.  The
 * environment is read once per process (see V_changed).  gen_chdir is the
 * only way to change directory that keeps the layer's idea of the current
 * directory (V_cwd) true.  Single thread; nothing is protected.
 *
 * Sources: indview.cpp (set-up, node list, name services),
 * indview_wrap.cpp (wrappers, plain calls, copy-on-write),
 * indview_compath.cpp (the path normalisers).
 */
#ifndef RAVELOG_INDVIEW_H
#define RAVELOG_INDVIEW_H

#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Set-up ----------------------------------------------------------- */

/* Reads TOV_VP_XSW and TOV_VP_DEBUG, lets TOV_VP_OFF and TOV_VP_SLOW lower
 * the mode, and in mode 1 or 2 reads the node list (once per process) and
 * becomes active when it holds a node.  Mode 0 makes the layer inactive; any
 * other mode reports the error "Illegal viewpath option passed to
 * gen_viewpathing" and does the same.  Returns the mode in force after the
 * environment had its say (an illegal mode comes back unchanged), also when
 * NVPATH gave no node.  errno is left as it was. */
int gen_viewpathing_init(int mode);
/* Frees the nodes, V_cwd, V_root and V_alt_root and makes the layer
 * inactive.  Safe to call at any time, also twice. */
void gen_viewpathing_cleanup(void);
/* True while viewpathing is active: V_flag set and at least one node. */
int gen_isviewpathing(void);
/* The value of the node-list variable, or null when it is missing or
 * empty.  Not the caller's. */
const char *gen_getviewpathenv(void);
/* Not offered: reports the error "[gen_getviewpathnodes]: not implemented",
 * sets *count to 0 (when count isn't null) and returns null. */
char **gen_getviewpathnodes(int *count);

/* ---- Wrappers -----------------------------------------------------------
 * Each takes the arguments of its system call and returns its result.
 * Which name reaches the system (see gen_viewpathfilename):
 *   reads                     the caller's name when it exists, else the
 *                             file of the first later node that has it
 *   O_RDWR, O_APPEND, fopen   copy a later node's file into the local
 *   "a" or "+" or any letter  tree first, then the local name
 *   outside "rwbcnt"
 *   O_WRONLY, fopen "w"       slow mode: as an update; fast mode: the
 *                             local name, no copy
 * A later node is never written. */

/* access(2).  When the name is missing locally: a mode with W_OK succeeds
 * if the file exists in any node (a write will copy it); other modes are
 * tried on each later node until one succeeds or fails with an error other
 * than ENOENT or ENOTDIR, whose result is returned. */
int gen_access(const char *name, int mode);
/* chdir(2).  Always forgets the cached current directory (gen_getcwd).
 * While active: null or empty fails (-1, EFAULT or ENOENT); a directory that
 * exists only in a later node is created (one level, empty) in the local
 * tree and entered; when that creation fails, -1 with EPERM.  A name found
 * nowhere gives ENOENT, one that isn't a directory ENOTDIR.  On success
 * V_cwd follows. */
int gen_chdir(const char *name);
/* creat(2).  When it fails and the file's directory is missing locally but
 * exists through the viewpath, that directory is created (one level) and
 * creat is tried again.  No copy is made. */
int gen_creat(const char *name, int mode);
/* fopen(3) on the name chosen by the mode string.  Null for a null name;
 * otherwise the stream, or null with errno as fopen left it.  Prints
 * nothing. */
FILE *gen_fopen(const char *name, const char *mode);
/* freopen(3) on the name chosen as for gen_fopen; null for a null name
 * (the stream is then left alone). */
FILE *gen_freopen(const char *name, const char *mode, FILE *stream);
/* link(2).  When it fails, existing is copied into the local tree and the
 * link is tried again; when no copy can be made, the first failure stands
 * with its errno.  new_name is used as given. */
int gen_link(const char *existing, const char *new_name);
/* open(2) on the name chosen by the flags.  A read-only open with O_CREAT
 * of a name found nowhere creates it in the local tree. */
int gen_open(const char *name, int flags, int mode);
/* stat(2).  When the name is missing locally, each later node is tried in
 * turn; V_node tells which one answered.  With V_wrstat set, an answer
 * from a later node has the write bits (0222) added. */
int gen_stat(const char *name, struct stat *buf);
/* unlink(2).  Fails with EPERM when the file exists only in a later node;
 * nothing is removed then. */
int gen_unlink(const char *name);

/* ---- Plain calls ----------------------------------------------------------
 * The system calls with the viewpath left out: no '^', no later node.  A
 * null name fails with EFAULT (null from the two stream calls).
 * gen_sys_chdir also forgets the cached current directory (gen_getcwd) but
 * doesn't move V_cwd. */
int gen_sys_access(const char *name, int mode);
int gen_sys_chdir(const char *name);
int gen_sys_creat(const char *name, int mode);
int gen_sys_link(const char *existing, const char *new_name);
int gen_sys_open(const char *name, int flags, int mode);
FILE *gen_sys_fopen(const char *name, const char *mode);
FILE *gen_sys_freopen(const char *name, const char *mode, FILE *stream);
int gen_sys_stat(const char *name, struct stat *buf);
int gen_sys_unlink(const char *name);

/* ---- Name services ----------------------------------------------------------
 * Each result is a new heap string (gen_free) or null where told.  A null
 * name gives null. */

/* Kinds of access for gen_viewpathfilename. */
#define GEN_VP_READ 0   /* find the file for reading                      */
#define GEN_VP_UPDATE 1 /* copy it into the local tree, use the local name */
#define GEN_VP_LOCAL 2  /* use the local name, no copy                    */

/* The name to hand to the system for an access of the given kind.  Inactive:
 * a copy of name.  Otherwise '^' is expanded, and a name present under the
 * caller's spelling wins.  GEN_VP_UPDATE makes the local copy (V_getf) and
 * returns the name.  GEN_VP_READ returns the first later node's name that
 * exists, or that fails with an error other than ENOENT/ENOTDIR; when none
 * has it, the name formed for the last node (one node: the name itself);
 * a name outside the root comes back as it is. */
char *gen_viewpathfilename(const char *name, int kind);
/* The name of this file in the local tree, from its real path: that path
 * when it lies under the first node, the first node joined with the rest
 * when it lies under a later node, null when it lies under none (a path
 * equal to a node isn't under it).  A name whose real path can't be taken
 * gives a copy of name.  Inactive: a copy of name. */
char *gen_viewpathlocalname(const char *name);
/* The same file one node further down: for the first node, in order, under
 * which the real path of name lies and whose next node holds the same
 * relative name, that name.  Null when there is none, when the real path
 * can't be taken, or when viewpathing is inactive. */
char *gen_viewpathnextname(const char *name);

/* ======================================================================
 * Internals, exported for the rest of the library and for tests.
 * ====================================================================== */

#define V_MAXNODES 128      /* nodes of a viewpath                       */
#define V_PATHSIZE 1024     /* bytes of Viewpath and V_pathname          */
#define V_MAXCOMPONENTS 128 /* components kept by V_compath, V2_compath  */

extern int V_flag;       /* 1 while active; set only with V_ndir > 0       */
extern int V_debug_info; /* TOV_VP_DEBUG was set: report through gen_info */
extern int V_xsw_flags;  /* atoi(TOV_VP_XSW); bit 0: ignore alternate root */
extern int V_wrcopy;     /* 1 slow mode, 0 fast mode (1 at start)          */
extern int V_wrstat;     /* gen_stat from a later node adds 0222; never set
                            by the library                                 */
extern int V_changed;    /* V_get_vpath reads NVPATH only while this is set,
                            and clears it; 1 at start, never set again by
                            the library (a test may set it to read anew)   */
extern int V_ndir;       /* number of nodes                                */
extern int V_node;       /* where the last gen_stat stopped: 0 the caller's
                            name, i a later node, V_ndir none              */
extern char **V_nodes;   /* V_MAXNODES heap strings: real paths, local tree
                            first; null before the first read              */
extern char *V_root;     /* copy of V_nodes[0]                             */
extern char *V_alt_root; /* the first node as spelled in NVPATH when that is
                            absolute and differs from its real path        */
extern char *V_cwd;      /* current directory, absolute, normalised        */
extern char Viewpath[V_PATHSIZE];   /* NVPATH's value, cut up in place     */
extern char V_pathname[V_PATHSIZE]; /* scratch name of V2_stat             */
/* Names of the environment variables; a host may point them elsewhere
 * before gen_init.  A null pointer counts as a variable that is unset. */
extern const char *V_vpath_variable; /* "NVPATH"       */
extern const char *V_debug_variable; /* "TOV_VP_DEBUG" */
extern const char *V_slow_variable;  /* "TOV_VP_SLOW"  */
extern const char *V_off_variable;   /* "TOV_VP_OFF"   */
extern const char *V_xsw_variable;   /* "TOV_VP_XSW"   */

/* Reads NVPATH into the node list, when V_changed is set (and clears it).
 * Each node's real path becomes a node; a node that can't be resolved is
 * dropped with the warning "V_get_vpath:  Cannot resolve vpath node 'TEXT',
 * error near 'PARTIAL'" (PARTIAL: what realpath left in its buffer).
 * Nodes past V_MAXNODES are ignored.  A value longer than V_PATHSIZE - 1
 * characters is refused as a whole with the warning "V_get_vpath:  Value of
 * NAME is too long (LENGTH characters, at most 1023); no viewpath node",
 * leaving no node. */
void V_get_vpath(void);
/* New string: name relative to the root (V_nodes[0], else V_alt_root),
 * with no leading '/', or "." for the root itself; null when it lies
 * outside, for a null name, and with no node.  A relative name is first
 * joined to V_cwd and normalised by V_compath.  A root ending in '/' (only
 * "/" as a real path) matches whatever goes on behind it. */
char *V_getrel(const char *name);
/* Copies the file of a later node to the same name in the local tree (with
 * its mode plus the write bits), creating its directory first when that
 * exists through the viewpath (one level).  0 on success and when the name
 * already exists locally (nothing to copy); -1 when there is nothing to
 * copy, when the source isn't a regular file, or when the copy fails, in
 * which case no partial file stays.  errno isn't kept.  A read or write
 * failing with EINVAL or EINTR is tried again up to 16 times in a row. */
int V_getf(const char *name);
/* Creates one directory with the mode gen_stat finds for it through the
 * viewpath (0777 when it finds none): gen_createdir's result.  Creates a
 * single level. */
int V_mkpath(const char *dir);
/* Moves V_cwd along a successful chdir to dir: an absolute dir replaces it,
 * a relative one is joined to it; the result is normalised by V_compath. */
void V_fix_cwd(const char *dir);
/* stat(2) for gen_chdir: the name as given, then, when viewpathing is
 * active, its part behind the root (V_nodes[0] only) on each later node.
 * A relative name is formed in V_pathname as V_cwd/name and normalised by
 * V2_compath; when that doesn't fit V_pathname the first failure stands
 * with errno ENAMETOOLONG.  Sets no V_node and adds no write bits. */
int V2_stat(const char *name, struct stat *buf);
/* Normalises path in place and returns it: repeated '/' and "." go,
 * "dir/.." pairs go, a leading ".." (also behind a leading '/') and a ".."
 * behind a kept ".." stay, a trailing '/' goes unless the path is "/", and
 * an empty result is ".".  Beyond V_MAXCOMPONENTS components it reports the
 * error "[V_compath]: too many directory components for \"PATH\"", and the
 * rest of the path stays behind the part normalised so far, so the name
 * still means the same file.  The path must be writable; it never grows.
 * Null gives null. */
char *V_compath(char *path);
/* V_compath for absolute paths, as gen_chdir needs it.  A path that doesn't
 * begin with '/' ends the program: gen_perrorexit(1, "INTERNAL ERROR:
 * libvp: chdir: compath2: (1) [PATH] not absolute path").  Once a "." or
 * ".." has been removed, the next ordinary component ends the work: behind
 * it only repeated '/' are dropped (and a trailing '/').  A ".." directly
 * behind the leading '/' stays, so "/.." lies outside every root.  The
 * limit message reads "[V2_compath]: too many ...".  Null gives null. */
char *V2_compath(char *path);
/* Copies the strings s1, s2, ... up to a null argument one behind the
 * other into dst, terminated, and returns dst.  No bound: the caller
 * guarantees the room. */
char *V_cat(char *dst, ...);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDVIEW_H */
