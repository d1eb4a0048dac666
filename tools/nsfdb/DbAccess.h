// Reading a whole database into a DatabaseData and making a new database
// from one, through the public Notes API. Both throw ToolError.
#ifndef NSFDB_DBACCESS_H
#define NSFDB_DBACCESS_H

#include <string>

#include "DbModel.h"

namespace nsfdb {

// Every note but the ACL note (its entries are in DatabaseData::acl), in
// note-ID order, each with its items in stored order.
DatabaseData ReadDatabase(const std::string& path);

// Makes the database at path, which must not exist. It is built under a
// temporary name beside path and appears under path only when complete, so
// a failure leaves nothing behind and an existing file is never replaced.
// source names the JSON the data came from, for error messages.
void CreateDatabase(const std::string& path, const DatabaseData& db, const std::string& source);

}  // namespace nsfdb

#endif
