/*
 * names.h - limits of names and paths. Stands alone, as in the toolkit.
 */
#ifndef NAME_DEFS
#define NAME_DEFS

/* Size of a path buffer, terminator included. */
#ifdef MAXPATH
#undef MAXPATH
#endif
#define MAXPATH 256

/* Buffer size for a user or server name, terminator included. */
#define MAXUSERNAME 256

#endif /* NAME_DEFS */
