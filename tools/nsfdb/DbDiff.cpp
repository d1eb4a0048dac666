#include "DbDiff.h"

#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "JsonFormat.h"
#include "NotesSession.h"
#include "Values.h"

namespace nsfdb {
namespace {

using Lines = std::vector<std::string>;
constexpr const char* kArrow = " -> ";

std::string Quoted(const std::string& lmbcs) {
    return OneLine(Json(LmbcsToUtf8Lossy(lmbcs)));
}

std::string Hex(WORD value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", value);
    return text;
}

std::string Upper(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

template <typename T>
void Field(Lines& out, const char* name, const T& a, const T& b, std::string (*show)(const T&)) {
    if (!(a == b)) out.push_back(std::string(name) + ": " + show(a) + kArrow + show(b));
}

bool SameTime(const TIMEDATE& a, const TIMEDATE& b) {
    return a.Innards[0] == b.Innards[0] && a.Innards[1] == b.Innards[1];
}

std::string ShowText(const std::string& lmbcs) {
    return Quoted(lmbcs);
}
std::string ShowWord(const WORD& value) {
    return std::to_string(value);
}
std::string ShowFlags(const WORD& value) {
    return Hex(value);
}
std::string ShowTime(const std::optional<TIMEDATE>& time) {
    return time ? TimedateText(*time) : "(none)";
}
std::string ShowBuild(const std::optional<WORD>& build) {
    return build ? std::to_string(*build) : "(none)";
}

void DiffSettings(const DatabaseData& a, const DatabaseData& b, Lines& out) {
    Field(out, "title", a.title, b.title, ShowText);
    Field(out, "categories", a.categories, b.categories, ShowText);
    Field(out, "templateName", a.templateName, b.templateName, ShowText);
    Field(out, "inheritFrom", a.inheritFrom, b.inheritFrom, ShowText);
    bool sameId = a.replicaId.has_value() == b.replicaId.has_value() &&
                  (!a.replicaId || SameTime(*a.replicaId, *b.replicaId));
    if (!sameId) out.push_back("replicaId: " + ShowTime(a.replicaId) + kArrow + ShowTime(b.replicaId));
    Field(out, "replicaFlags", a.replicaFlags, b.replicaFlags, ShowFlags);
    Field(out, "replicaCutoffInterval", a.replicaCutoffInterval, b.replicaCutoffInterval, ShowWord);
    if (!SameTime(a.replicaCutoff, b.replicaCutoff))
        out.push_back("replicaCutoff: " + TimedateText(a.replicaCutoff) + kArrow +
                      TimedateText(b.replicaCutoff));
    Field(out, "buildVersion", a.buildVersion, b.buildVersion, ShowBuild);
}

// ---- ACL ---------------------------------------------------------------------------

std::string AclRights(const AclEntryData& entry) {
    Json json = AclEntryToJson(entry);
    json.erase("name");
    return OneLine(json);
}

const AclEntryData* FindEntry(const std::vector<AclEntryData>& entries, const std::string& name) {
    for (const AclEntryData& entry : entries)
        if (Upper(entry.name) == Upper(name)) return &entry;
    return nullptr;
}

std::vector<std::string> CommonNames(const std::vector<AclEntryData>& from,
                                     const std::vector<AclEntryData>& other) {
    std::vector<std::string> names;
    for (const AclEntryData& entry : from)
        if (FindEntry(other, entry.name)) names.push_back(Upper(entry.name));
    return names;
}

void DiffAcl(const std::vector<AclEntryData>& a, const std::vector<AclEntryData>& b, Lines& out) {
    for (const AclEntryData& old : a) {
        const AclEntryData* now = FindEntry(b, old.name);
        if (!now) {
            out.push_back("acl: - " + Quoted(old.name) + " " + AclRights(old));
        } else if (AclRights(old) != AclRights(*now) || old.name != now->name) {
            out.push_back("acl: ~ " + Quoted(old.name) + " " + AclRights(old) + kArrow + Quoted(now->name) +
                          " " + AclRights(*now));
        }
    }
    for (const AclEntryData& added : b)
        if (!FindEntry(a, added.name)) out.push_back("acl: + " + Quoted(added.name) + " " + AclRights(added));
    if (CommonNames(a, b) != CommonNames(b, a)) out.push_back("acl: the order of the entries changed");
}

// ---- Notes and items ---------------------------------------------------------------------

// An item's identity within a note: its name without regard to case, and
// which occurrence of that name it is.
using ItemKey = std::pair<std::string, size_t>;

std::vector<ItemKey> KeysOf(const std::vector<ItemData>& items) {
    std::map<std::string, size_t> seen;
    std::vector<ItemKey> keys;
    for (const ItemData& item : items) {
        std::string name = Upper(item.name);
        keys.emplace_back(name, seen[name]++);
    }
    return keys;
}

std::optional<size_t> IndexOf(const std::vector<ItemKey>& keys, const ItemKey& key) {
    for (size_t i = 0; i < keys.size(); ++i)
        if (keys[i] == key) return i;
    return std::nullopt;
}

std::string ShowItem(const ItemData& item) {
    return LmbcsToUtf8Lossy(item.name) + ": " + OneLine(ItemValueToJson(item));
}

bool SameItem(const ItemData& a, const ItemData& b) {
    return a.name == b.name && a.flags == b.flags && a.type == b.type && a.value == b.value;
}

std::vector<ItemKey> CommonKeys(const std::vector<ItemKey>& from, const std::vector<ItemKey>& other) {
    std::vector<ItemKey> common;
    for (const ItemKey& key : from)
        if (IndexOf(other, key)) common.push_back(key);
    return common;
}

Lines DiffItems(const std::vector<ItemData>& a, const std::vector<ItemData>& b) {
    Lines out;
    std::vector<ItemKey> keysA = KeysOf(a), keysB = KeysOf(b);
    for (size_t i = 0; i < a.size(); ++i) {
        std::optional<size_t> j = IndexOf(keysB, keysA[i]);
        if (!j)
            out.push_back("  - " + ShowItem(a[i]));
        else if (!SameItem(a[i], b[*j]))
            out.push_back("  ~ " + ShowItem(a[i]) + kArrow +
                          (a[i].name == b[*j].name ? "" : LmbcsToUtf8Lossy(b[*j].name) + ": ") +
                          OneLine(ItemValueToJson(b[*j])));
    }
    for (size_t j = 0; j < b.size(); ++j)
        if (!IndexOf(keysA, keysB[j])) out.push_back("  + " + ShowItem(b[j]));
    if (CommonKeys(keysA, keysB) != CommonKeys(keysB, keysA))
        out.push_back("  the order of the items changed");
    return out;
}

std::string NoteTitle(const NoteData& note) {
    std::string unid = note.unid ? UnidText(*note.unid) : "(no UNID)";
    std::string id = note.noteId ? ", noteId " + NoteIdText(*note.noteId) : "";
    return "note " + unid + " (" + NoteClassText(note.noteClass) + id + ")";
}

void ListNote(const char* sign, const NoteData& note, Lines& out) {
    out.push_back(std::string(sign) + " " + NoteTitle(note));
    for (const ItemData& item : note.items) out.push_back("    " + ShowItem(item));
}

void DiffNote(const NoteData& a, const NoteData& b, Lines& out) {
    Lines changes;
    if (a.noteId != b.noteId)
        changes.push_back("  noteId: " + (a.noteId ? NoteIdText(*a.noteId) : "(none)") + kArrow +
                          (b.noteId ? NoteIdText(*b.noteId) : "(none)"));
    if (a.noteClass != b.noteClass)
        changes.push_back("  class: " + NoteClassText(a.noteClass) + kArrow + NoteClassText(b.noteClass));
    Lines items = DiffItems(a.items, b.items);
    changes.insert(changes.end(), items.begin(), items.end());
    if (changes.empty()) return;
    out.push_back("~ " + NoteTitle(a));
    out.insert(out.end(), changes.begin(), changes.end());
}

using NotesByUnid = std::map<std::string, const NoteData*>;

NotesByUnid IndexByUnid(const std::vector<NoteData>& notes) {
    NotesByUnid index;
    for (const NoteData& note : notes)
        if (note.unid) index.emplace(UnidText(*note.unid), &note);
    return index;
}

const NoteData* FindNote(const NotesByUnid& index, const NoteData& like) {
    if (!like.unid) return nullptr;
    auto found = index.find(UnidText(*like.unid));
    return found == index.end() ? nullptr : found->second;
}

void DiffNotes(const std::vector<NoteData>& a, const std::vector<NoteData>& b, Lines& out) {
    NotesByUnid indexA = IndexByUnid(a), indexB = IndexByUnid(b);
    for (const NoteData& old : a) {
        const NoteData* now = FindNote(indexB, old);
        if (now)
            DiffNote(old, *now, out);
        else
            ListNote("-", old, out);
    }
    for (const NoteData& added : b)
        if (!FindNote(indexA, added)) ListNote("+", added, out);
}

}  // namespace

std::vector<std::string> DiffDatabases(const DatabaseData& a, const DatabaseData& b) {
    Lines out;
    DiffSettings(a, b, out);
    DiffAcl(a.acl.value_or(std::vector<AclEntryData>()), b.acl.value_or(std::vector<AclEntryData>()), out);
    DiffNotes(a.notes, b.notes, out);
    return out;
}

}  // namespace nsfdb
