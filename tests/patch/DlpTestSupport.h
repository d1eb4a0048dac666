// DLP documents of a configuration database and its template, made and read through the Notes
// API for the in-process tests of the DLP upgrade and the reference cleanup.
#ifndef TESTS_PATCH_DLPTESTSUPPORT_H
#define TESTS_PATCH_DLPTESTSUPPORT_H

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ConfigMigration.h"
#include "PatchTestServer.h"

namespace patch_test {

using TextList = std::vector<std::string>;

// A DLP document to store: its form, text items, list items and, when not empty, its UNID.
struct DlpDoc {
    std::string form;
    TextItems texts;
    std::vector<std::pair<std::string, TextList>> lists;
    std::string unid;
};

inline std::string UnidTextOf(const ORIGINATORID& oid) {
    char text[33];
    std::snprintf(text, sizeof text, "%08X%08X%08X%08X", oid.File.Innards[1], oid.File.Innards[0],
                  oid.Note.Innards[1], oid.Note.Innards[0]);
    return text;
}

inline UNID UnidFromText(const std::string& text) {
    UNID unid{};
    unsigned int words[4] = {0, 0, 0, 0};
    std::sscanf(text.c_str(), "%8x%8x%8x%8x", &words[0], &words[1], &words[2], &words[3]);
    unid.File.Innards[1] = words[0];
    unid.File.Innards[0] = words[1];
    unid.Note.Innards[1] = words[2];
    unid.Note.Innards[0] = words[3];
    return unid;
}

// Saves the document; returns its UNID text.
inline std::string AddDlpDoc(DBHANDLE db, const DlpDoc& doc) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
    if (!doc.unid.empty()) {
        ORIGINATORID oid;
        NSFNoteGetInfo(note, _NOTE_OID, &oid);
        UNID unid = UnidFromText(doc.unid);
        oid.File = unid.File;
        oid.Note = unid.Note;
        NSFNoteSetInfo(note, _NOTE_OID, &oid);
    }
    EXPECT_EQ(NSFItemSetText(note, "Form", doc.form.c_str(), MAXWORD), NOERROR);
    for (const auto& item : doc.texts) NSFItemSetText(note, item.first.c_str(), item.second.c_str(), MAXWORD);
    for (const auto& list : doc.lists) {
        for (const std::string& entry : list.second) {
            EXPECT_EQ(NSFItemAppendTextList(note, list.first.c_str(), entry.c_str(), (WORD)entry.size(), TRUE),
                      NOERROR);
        }
    }
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    ORIGINATORID oid;
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    NSFNoteClose(note);
    return UnidTextOf(oid);
}

// A live document as read back by its UNID.
struct StoredDoc {
    bool found = false;
    NOTEID id = 0;
    std::string text(const char* item) const;
    TextList list(const char* item) const;
    bool has(const char* item) const;
    DBHANDLE db = NULLHANDLE;
};

inline StoredDoc ReadDoc(DBHANDLE db, const std::string& unidText) {
    StoredDoc doc;
    doc.db = db;
    UNID unid = UnidFromText(unidText);
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpenByUNID(db, &unid, 0, &note) != NOERROR) return doc;
    doc.found = true;
    NSFNoteGetInfo(note, _NOTE_ID, &doc.id);
    NSFNoteClose(note);
    return doc;
}

inline std::string StoredDoc::text(const char* item) const {
    return ItemText(db, id, item);
}

inline bool StoredDoc::has(const char* item) const {
    return HasItem(db, id, item);
}

inline TextList StoredDoc::list(const char* item) const {
    TextList entries;
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpen(db, id, 0, &note) != NOERROR) return entries;
    WORD count = NSFItemGetTextListEntries(note, item);
    for (WORD i = 0; i < count; ++i) {
        char entry[8192] = {0};
        WORD length = NSFItemGetTextListEntry(note, item, i, entry, sizeof entry - 1);
        entries.emplace_back(entry, length);
    }
    NSFNoteClose(note);
    return entries;
}

struct FoundDoc {
    NOTEID id;
    std::string unid;
};

inline STATUS LNCALLBACK CollectDoc(void* parameter, SEARCH_MATCH* match, ITEM_TABLE*) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if (found.SERetFlags & SE_FMATCH) {
        static_cast<std::vector<FoundDoc>*>(parameter)->push_back(
            {found.ID.NoteID, UnidTextOf(found.OriginatorID)});
    }
    return NOERROR;
}

// The live documents of a form whose "name" is name, as (note ID, UNID).
inline std::vector<FoundDoc> DocsNamed(DBHANDLE db, const std::string& form, const std::string& name) {
    std::string text = "Form=\"" + form + "\" & name=\"" + name + "\"";
    FORMULAHANDLE formula = NULLHANDLE;
    WORD length = 0, line = 0, column = 0, offset = 0, errorLength = 0;
    STATUS compileError = 0;
    std::vector<FoundDoc> docs;
    if (NSFFormulaCompile(nullptr, 0, text.c_str(), (WORD)text.size(), &formula, &length, &compileError, &line,
                          &column, &offset, &errorLength) != NOERROR) {
        ADD_FAILURE() << "formula " << text;
        return docs;
    }
    NSFSearch(db, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CollectDoc, &docs, nullptr);
    OSMemFree(formula);
    return docs;
}

// A configuration database and its template, replicas of each other as the product ships them,
// and the obsolete collections emptied.
class DlpPlatformTest : public PatchPlatformTest {
protected:
    void SetUp() override {
        PatchPlatformTest::SetUp();
        m_nsf_ObsoleteUNIDSet.clear();
        m_nsf_ObsoleteUNIDMap.clear();
        db_ = FreshDatabase("rpx/dlp_test.nsf");
        template_ = FreshDatabase("rpx/dlp_test.ntf");
        DBREPLICAINFO info;
        NSFDbReplicaInfoGet(db_, &info);
        NSFDbReplicaInfoSet(template_, &info);
    }
    void TearDown() override {
        m_nsf_ObsoleteUNIDSet.clear();
        m_nsf_ObsoleteUNIDMap.clear();
        NotesTerm();  // closes the handles the upgrade leaves open on purpose
        InitPlatform();
    }
    DBHANDLE db_ = NULLHANDLE;
    DBHANDLE template_ = NULLHANDLE;
};

}  // namespace patch_test

#endif
