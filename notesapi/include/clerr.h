/*
 * clerr.h - status codes of the client side of server connections.
 */
#ifndef CLIENT_ERR_DEFS
#define CLIENT_ERR_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

#define ERR_SERVER_NOT_RESPONDING (PKG_CLIENT+7) /* server down or unreachable */

#endif /* CLIENT_ERR_DEFS */
