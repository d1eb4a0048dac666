// The names the JSON form uses for note classes, item types, item flags,
// ACL levels and ACL entry flags.
#ifndef NSFDB_NAMES_H
#define NSFDB_NAMES_H

#include <optional>
#include <string>
#include <vector>

#include "global.h"

namespace nsfdb {

// A name for exactly this value, if it has one.
std::optional<std::string> NoteClassName(WORD noteClass);
std::optional<WORD> NoteClassFromName(const std::string& name);

std::optional<std::string> ItemTypeName(WORD type);
std::optional<WORD> ItemTypeFromName(const std::string& name);

std::optional<std::string> AclLevelName(WORD level);
std::optional<WORD> AclLevelFromName(const std::string& name);

// A set of flags: one name per bit. Bits without a name are left in the
// returned remainder.
struct FlagName {
    WORD bit;
    const char* name;
};
const std::vector<FlagName>& ItemFlagNames();
const std::vector<FlagName>& AclFlagNames();
std::vector<std::string> FlagsToNames(WORD flags, const std::vector<FlagName>& names, WORD& remainder);
std::optional<WORD> FlagFromName(const std::string& name, const std::vector<FlagName>& names);

}  // namespace nsfdb

#endif
