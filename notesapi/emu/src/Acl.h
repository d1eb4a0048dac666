// Access control lists: their memory form (the bytes of an ACL handle) and
// their place in a database, the one note of class ACL, whose "$ACL" item
// holds the same bytes.
#ifndef EMU_ACL_H
#define EMU_ACL_H

#include "Store.h"

namespace emu {

// Gives a database the ACL of a new database: "-Default-" with designer
// access and the server (ServerName) as manager.
STATUS WriteDefaultAcl(DbFile& file);

}  // namespace emu

#endif
