#include "Names.h"

#include <utility>

#include "acl.h"
#include "nsfdata.h"
#include "nsfnote.h"

namespace nsfdb {
namespace {

using NameTable = std::vector<std::pair<WORD, const char*>>;

const NameTable& NoteClasses() {
    static const NameTable table = {
        {NOTE_CLASS_DOCUMENT, "document"}, {NOTE_CLASS_INFO, "info"},
        {NOTE_CLASS_FORM, "form"},         {NOTE_CLASS_VIEW, "view"},
        {NOTE_CLASS_ICON, "icon"},         {NOTE_CLASS_DESIGN, "design"},
        {NOTE_CLASS_ACL, "acl"},           {NOTE_CLASS_HELP_INDEX, "helpindex"},
        {NOTE_CLASS_HELP, "help"},         {NOTE_CLASS_FILTER, "filter"},
        {NOTE_CLASS_FIELD, "field"},       {NOTE_CLASS_REPLFORMULA, "replformula"}};
    return table;
}

// The TYPE_* names in lower case.
const NameTable& ItemTypes() {
    static const NameTable table = {{TYPE_TEXT, "text"},
                                    {TYPE_TEXT_LIST, "text_list"},
                                    {TYPE_RFC822_TEXT, "rfc822_text"},
                                    {TYPE_NUMBER, "number"},
                                    {TYPE_NUMBER_RANGE, "number_range"},
                                    {TYPE_TIME, "time"},
                                    {TYPE_TIME_RANGE, "time_range"},
                                    {TYPE_FORMULA, "formula"},
                                    {TYPE_USERID, "userid"},
                                    {TYPE_ERROR, "error"},
                                    {TYPE_UNAVAILABLE, "unavailable"},
                                    {TYPE_INVALID_OR_UNKNOWN, "invalid_or_unknown"},
                                    {TYPE_COMPOSITE, "composite"},
                                    {TYPE_COLLATION, "collation"},
                                    {TYPE_OBJECT, "object"},
                                    {TYPE_NOTEREF_LIST, "noteref_list"},
                                    {TYPE_VIEW_FORMAT, "view_format"},
                                    {TYPE_ICON, "icon"},
                                    {TYPE_NOTELINK_LIST, "notelink_list"},
                                    {TYPE_SIGNATURE, "signature"},
                                    {TYPE_SEAL, "seal"},
                                    {TYPE_SEALDATA, "sealdata"},
                                    {TYPE_SEAL_LIST, "seal_list"},
                                    {TYPE_HIGHLIGHTS, "highlights"},
                                    {TYPE_WORKSHEET_DATA, "worksheet_data"},
                                    {TYPE_USERDATA, "userdata"},
                                    {TYPE_QUERY, "query"},
                                    {TYPE_ACTION, "action"},
                                    {TYPE_HTML, "html"},
                                    {TYPE_MIME_PART, "mime_part"}};
    return table;
}

const NameTable& AclLevels() {
    static const NameTable table = {{ACL_LEVEL_NOACCESS, "noaccess"}, {ACL_LEVEL_DEPOSITOR, "depositor"},
                                    {ACL_LEVEL_READER, "reader"},     {ACL_LEVEL_AUTHOR, "author"},
                                    {ACL_LEVEL_EDITOR, "editor"},     {ACL_LEVEL_DESIGNER, "designer"},
                                    {ACL_LEVEL_MANAGER, "manager"}};
    return table;
}

std::optional<std::string> NameOf(const NameTable& table, WORD value) {
    for (const auto& entry : table)
        if (entry.first == value) return std::string(entry.second);
    return std::nullopt;
}

std::optional<WORD> ValueOf(const NameTable& table, const std::string& name) {
    for (const auto& entry : table)
        if (name == entry.second) return entry.first;
    return std::nullopt;
}

}  // namespace

std::optional<std::string> NoteClassName(WORD noteClass) {
    return NameOf(NoteClasses(), noteClass);
}
std::optional<WORD> NoteClassFromName(const std::string& name) {
    return ValueOf(NoteClasses(), name);
}

std::optional<std::string> ItemTypeName(WORD type) {
    return NameOf(ItemTypes(), type);
}
std::optional<WORD> ItemTypeFromName(const std::string& name) {
    return ValueOf(ItemTypes(), name);
}

std::optional<std::string> AclLevelName(WORD level) {
    return NameOf(AclLevels(), level);
}
std::optional<WORD> AclLevelFromName(const std::string& name) {
    return ValueOf(AclLevels(), name);
}

const std::vector<FlagName>& ItemFlagNames() {
    static const std::vector<FlagName> names = {
        {ITEM_SIGN, "sign"},           {ITEM_SEAL, "seal"},
        {ITEM_SUMMARY, "summary"},     {ITEM_READWRITERS, "readwriters"},
        {ITEM_NAMES, "names"},         {ITEM_PLACEHOLDER, "placeholder"},
        {ITEM_PROTECTED, "protected"}, {ITEM_READERS, "readers"},
        {ITEM_UNCHANGED, "unchanged"}};
    return names;
}

const std::vector<FlagName>& AclFlagNames() {
    static const std::vector<FlagName> names = {{ACL_FLAG_AUTHOR_NOCREATE, "author_nocreate"},
                                                {ACL_FLAG_SERVER, "server"},
                                                {ACL_FLAG_NODELETE, "nodelete"},
                                                {ACL_FLAG_CREATE_PRAGENT, "create_pragent"},
                                                {ACL_FLAG_CREATE_PRFOLDER, "create_prfolder"},
                                                {ACL_FLAG_PERSON, "person"},
                                                {ACL_FLAG_GROUP, "group"},
                                                {ACL_FLAG_CREATE_FOLDER, "create_folder"},
                                                {ACL_FLAG_CREATE_LOTUSSCRIPT, "create_lotusscript"},
                                                {ACL_FLAG_PUBLICREADER, "publicreader"},
                                                {ACL_FLAG_PUBLICWRITER, "publicwriter"},
                                                {ACL_FLAG_MONITORS_DISALLOWED, "monitors_disallowed"},
                                                {ACL_FLAG_NOREPLICATE, "noreplicate"},
                                                {ACL_FLAG_ADMIN_READERAUTHOR, "admin_readerauthor"},
                                                {ACL_FLAG_ADMIN_SERVER, "admin_server"}};
    return names;
}

std::vector<std::string> FlagsToNames(WORD flags, const std::vector<FlagName>& names, WORD& remainder) {
    std::vector<std::string> result;
    remainder = flags;
    for (const FlagName& flag : names)
        if (flags & flag.bit) {
            result.emplace_back(flag.name);
            remainder = static_cast<WORD>(remainder & ~flag.bit);
        }
    return result;
}

std::optional<WORD> FlagFromName(const std::string& name, const std::vector<FlagName>& names) {
    for (const FlagName& flag : names)
        if (name == flag.name) return flag.bit;
    return std::nullopt;
}

}  // namespace nsfdb
