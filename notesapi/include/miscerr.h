/*
 * miscerr.h - status codes of the miscellaneous package (PKG_MISC).
 */
#ifndef MISC_ERR_DEFS
#define MISC_ERR_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* "Entry not found in index": also what NSFNoteOpenByUNID returns for an
   unknown UNID. */
#define ERR_NOT_FOUND    (PKG_MISC+4)

/* Message queues (tell <task> commands reach a task through one). */
#define ERR_MQ_TIMEOUT   (PKG_MISC+95)
#define ERR_MQ_EMPTY     (PKG_MISC+100)
#define ERR_MQ_QUITTING  (PKG_MISC+102)

#endif /* MISC_ERR_DEFS */
