// The differences between two databases, as lines for a reader.
#ifndef NSFDB_DBDIFF_H
#define NSFDB_DBDIFF_H

#include <string>
#include <vector>

#include "DbModel.h"

namespace nsfdb {

// Database information, replica information, ACL entries (matched by name),
// notes added and removed (matched by UNID) and, per note, items added,
// removed and changed (matched by name and occurrence) with old and new
// values as the dump writes them. Empty when a and b are equal.
std::vector<std::string> DiffDatabases(const DatabaseData& a, const DatabaseData& b);

}  // namespace nsfdb

#endif
