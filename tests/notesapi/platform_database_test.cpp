// Databases: opening and its errors, the information buffer, replica
// information, ACL copies and NSFDbCreateAndCopy.
#include <fstream>

#include "PlatformTest.h"
#include "acl.h"
#include "nsferr.h"
#include "oserr.h"

namespace platform_test {
namespace {

TEST(PlatformDatabase, OpenReportsMissingAndForeignFiles) {
	DBHANDLE db = 123;
	EXPECT_EQ(NSFDbOpen("tests/no_such_database.nsf", &db), ERR_NOEXIST);
	EXPECT_EQ(db, static_cast<DBHANDLE>(NULLHANDLE));
	std::ofstream(DataFolder() + "/tests_plain.nsf") << "this is not a database\n";
	EXPECT_EQ(ERR(NSFDbOpen("tests_plain.nsf", &db)), ERR_NOT_NSF);
	std::ofstream(DataFolder() + "/tests_empty.nsf").close();
	EXPECT_EQ(ERR(NSFDbOpen("tests_empty.nsf", &db)), ERR_NOT_NSF);
}

TEST(PlatformDatabase, PathsMayBeAbsoluteUseBackslashesOrOmitNsf) {
	TestDb created("paths.nsf");
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen((DataFolder() + "/tests/paths.nsf").c_str(), &db), NOERROR);
	EXPECT_EQ(NSFDbClose(db), NOERROR);
	ASSERT_EQ(NSFDbOpen("tests\\paths.nsf", &db), NOERROR);
	EXPECT_EQ(NSFDbClose(db), NOERROR);
	ASSERT_EQ(NSFDbOpen("tests/paths", &db), NOERROR);
	char canonical[MAXPATH], expanded[MAXPATH];
	ASSERT_EQ(NSFDbPathGet(db, canonical, expanded), NOERROR);
	EXPECT_STREQ(canonical, "tests/paths.nsf");
	EXPECT_EQ(std::string(expanded), DataFolder() + "/tests/paths.nsf");
	EXPECT_EQ(NSFDbClose(db), NOERROR);
}

TEST(PlatformDatabase, CreateRefusesAnExistingFileUnlessForced) {
	TestDb db("create_twice.nsf");
	EXPECT_EQ(NSFDbCreate("tests/create_twice.nsf", DBCLASS_BY_EXTENSION, FALSE), ERR_EXISTS);
}

TEST(PlatformDatabase, InfoBufferFieldsRoundTrip) {
	TestDb db("info.nsf");
	char info[NSF_INFO_SIZE] = "";
	ASSERT_EQ(NSFDbInfoGet(db, info), NOERROR);
	NSFDbInfoModify(info, INFOPARSE_TITLE, "Configuration");
	NSFDbInfoModify(info, INFOPARSE_DESIGN_CLASS, "StdConfigTemplate");
	NSFDbInfoModify(info, INFOPARSE_CLASS, "RPXConfig");
	ASSERT_EQ(NSFDbInfoSet(db, info), NOERROR);

	char reread[NSF_INFO_SIZE];
	ASSERT_EQ(NSFDbInfoGet(db, reread), NOERROR);
	char field[NSF_INFO_SIZE];
	NSFDbInfoParse(reread, INFOPARSE_TITLE, field, sizeof field);
	EXPECT_STREQ(field, "Configuration");
	NSFDbInfoParse(reread, INFOPARSE_CLASS, field, sizeof field);
	EXPECT_STREQ(field, "RPXConfig");
	NSFDbInfoParse(reread, INFOPARSE_DESIGN_CLASS, field, sizeof field);
	EXPECT_STREQ(field, "StdConfigTemplate");
	NSFDbInfoParse(reread, INFOPARSE_CATEGORIES, field, sizeof field);
	EXPECT_STREQ(field, "");
	// The platform's encoding: template names are marked "#1" and "#2".
	EXPECT_STREQ(reread, "Configuration\n\n#1RPXConfig\n#2StdConfigTemplate");
	NSFDbInfoParse(reread, INFOPARSE_TITLE, field, 5);
	EXPECT_STREQ(field, "Conf");
}

TEST(PlatformDatabase, ReplicaInfoIsStored) {
	TestDb db("replica.nsf");
	DBREPLICAINFO info;
	ASSERT_EQ(NSFDbReplicaInfoGet(db, &info), NOERROR);
	info.ID.Innards[0] = 0x001E96E4;
	info.ID.Innards[1] = 0x852552F9;
	info.Flags |= REPLFLG_HIDDEN_DESIGN;
	ASSERT_EQ(NSFDbReplicaInfoSet(db, &info), NOERROR);
	DBHANDLE again;
	ASSERT_EQ(NSFDbOpen(db.path().c_str(), &again), NOERROR);
	DBREPLICAINFO reread;
	ASSERT_EQ(NSFDbReplicaInfoGet(again, &reread), NOERROR);
	EXPECT_EQ(reread.ID.Innards[0], 0x001E96E4u);
	EXPECT_EQ(reread.ID.Innards[1], 0x852552F9u);
	EXPECT_TRUE(reread.Flags & REPLFLG_HIDDEN_DESIGN);
	NSFDbClose(again);
}

struct AclCollector {
	std::vector<std::pair<std::string, WORD>> entries;
};

void LNCALLBACK CollectEntry(void* param, char* name, WORD level, ACL_PRIVILEGES*, WORD) {
	static_cast<AclCollector*>(param)->entries.emplace_back(name, level);
}

TEST(PlatformDatabase, AclReadFromOneDatabaseStoresIntoAnother) {
	TestDb source("acl_source.nsf");
	TestDb target("acl_target.nsf");
	DHANDLE acl;
	ASSERT_EQ(ACLCreate(&acl), NOERROR);
	ASSERT_EQ(ACLAddEntry(acl, "-Default-", ACL_LEVEL_READER, nullptr, 0), NOERROR);
	ASSERT_EQ(ACLAddEntry(acl, "CN=Admin/O=Acme", ACL_LEVEL_MANAGER, nullptr, ACL_FLAG_PERSON), NOERROR);
	EXPECT_EQ(ACLAddEntry(acl, "cn=admin/o=acme", ACL_LEVEL_READER, nullptr, 0), ERR_EXISTS);
	ASSERT_EQ(NSFDbStoreACL(source, acl, 0, 1), NOERROR);
	ASSERT_EQ(OSMemFree(acl), NOERROR);

	DHANDLE read;
	ASSERT_EQ(NSFDbReadACL(source, &read), NOERROR);
	ASSERT_EQ(NSFDbStoreACL(target, read, 0, 0), NOERROR);
	ASSERT_EQ(OSMemFree(read), NOERROR);

	ASSERT_EQ(NSFDbReadACL(target, &read), NOERROR);
	AclCollector found;
	ASSERT_EQ(ACLEnumEntries(read, CollectEntry, &found), NOERROR);
	OSMemFree(read);
	ASSERT_EQ(found.entries.size(), 2u);
	EXPECT_EQ(found.entries[0], std::make_pair(std::string("-Default-"), WORD(ACL_LEVEL_READER)));
	EXPECT_EQ(found.entries[1], std::make_pair(std::string("CN=Admin/O=Acme"), WORD(ACL_LEVEL_MANAGER)));
}

TEST(PlatformDatabase, AclEntriesCanBeUpdatedAndDeleted) {
	DHANDLE acl;
	ASSERT_EQ(ACLCreate(&acl), NOERROR);
	ASSERT_EQ(ACLAddEntry(acl, "A", ACL_LEVEL_READER, nullptr, 0), NOERROR);
	ASSERT_EQ(ACLAddEntry(acl, "B", ACL_LEVEL_AUTHOR, nullptr, 0), NOERROR);
	ASSERT_EQ(ACLUpdateEntry(acl, "A", ACL_UPDATE_LEVEL | ACL_UPDATE_NAME, "C", ACL_LEVEL_EDITOR, nullptr, 0),
	          NOERROR);
	ASSERT_EQ(ACLDeleteEntry(acl, "B"), NOERROR);
	EXPECT_NE(ACLDeleteEntry(acl, "B"), NOERROR);
	AclCollector found;
	ASSERT_EQ(ACLEnumEntries(acl, CollectEntry, &found), NOERROR);
	ASSERT_EQ(found.entries.size(), 1u);
	EXPECT_EQ(found.entries[0], std::make_pair(std::string("C"), WORD(ACL_LEVEL_EDITOR)));
	OSMemFree(acl);
}

TEST(PlatformDatabase, CreateAndCopyCopiesNotesAclAndInfoWithANewReplicaId) {
	DBHANDLE templ;
	{
		TestDb source("copy_source.ntf");
		char info[NSF_INFO_SIZE] = "";
		NSFDbInfoModify(info, INFOPARSE_TITLE, "Pattern template");
		NSFDbInfoModify(info, INFOPARSE_CLASS, "RPXPattern");
		ASSERT_EQ(NSFDbInfoSet(source, info), NOERROR);
		AddDocument(source, {{"Form", "Patternfile"}});
		NOTEHANDLE help;
		ASSERT_EQ(NSFNoteCreate(source, &help), NOERROR);
		WORD helpClass = NOTE_CLASS_HELP;
		NSFNoteSetInfo(help, _NOTE_CLASS, &helpClass);
		NSFItemSetText(help, "BuildNumber", "5.6.1.3001", MAXWORD);
		ASSERT_EQ(NSFNoteUpdate(help, 0), NOERROR);
		NSFNoteClose(help);
		DHANDLE acl;
		ASSERT_EQ(ACLCreate(&acl), NOERROR);
		ACLAddEntry(acl, "-Default-", ACL_LEVEL_NOACCESS, nullptr, 0);
		ASSERT_EQ(NSFDbStoreACL(source, acl, 0, 1), NOERROR);
		OSMemFree(acl);
	}
	std::remove((DataFolder() + "/tests/copy_target.nsf").c_str());
	DBHANDLE copy;
	ASSERT_EQ(NSFDbCreateAndCopy("tests/copy_source.ntf", "tests/copy_target.nsf", NOTE_CLASS_ALL, 0x1000, 0, &copy),
	          NOERROR);
	ASSERT_EQ(NSFDbOpen("tests/copy_source.ntf", &templ), NOERROR);

	std::vector<Visit> visits;
	ASSERT_EQ(Search(copy, NULLHANDLE, NOTE_CLASS_DOCUMENT | NOTE_CLASS_HELP, visits), NOERROR);
	EXPECT_EQ(visits.size(), 2u);
	char info[NSF_INFO_SIZE], field[NSF_INFO_SIZE];
	ASSERT_EQ(NSFDbInfoGet(copy, info), NOERROR);
	NSFDbInfoParse(info, INFOPARSE_CLASS, field, sizeof field);
	EXPECT_STREQ(field, "RPXPattern");

	DBREPLICAINFO a, b;
	NSFDbReplicaInfoGet(templ, &a);
	NSFDbReplicaInfoGet(copy, &b);
	EXPECT_NE(std::memcmp(&a.ID, &b.ID, sizeof a.ID), 0);

	DHANDLE acl;
	ASSERT_EQ(NSFDbReadACL(copy, &acl), NOERROR);
	AclCollector found;
	ACLEnumEntries(acl, CollectEntry, &found);
	OSMemFree(acl);
	ASSERT_EQ(found.entries.size(), 1u);
	EXPECT_EQ(found.entries[0].second, ACL_LEVEL_NOACCESS);

	NSFDbClose(copy);
	EXPECT_EQ(NSFDbCreateAndCopy("tests/copy_source.ntf", "tests/copy_target.nsf", NOTE_CLASS_ALL, 0, 0, &copy),
	          ERR_EXISTS);
	ASSERT_EQ(NSFDbCreateAndCopy("tests/copy_source.ntf", "tests/copy_replica.nsf", NOTE_CLASS_ALL, 0,
	                             DBCOPY_REPLICA, &copy),
	          NOERROR);
	NSFDbReplicaInfoGet(copy, &b);
	EXPECT_EQ(std::memcmp(&a.ID, &b.ID, sizeof a.ID), 0);
	NSFDbClose(copy);
	NSFDbClose(templ);
}

TEST(PlatformDatabase, ClosingADatabaseReleasesItsNotes) {
	DBHANDLE db;
	ASSERT_EQ(NSFDbCreate("tests/close_releases.nsf", DBCLASS_BY_EXTENSION, TRUE), NOERROR);
	ASSERT_EQ(NSFDbOpen("tests/close_releases.nsf", &db), NOERROR);
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	ASSERT_EQ(NSFDbClose(db), NOERROR);
	EXPECT_NE(NSFItemSetText(note, "Form", "x", MAXWORD), NOERROR);
	EXPECT_NE(NSFNoteClose(note), NOERROR);
}

}  // namespace
}  // namespace platform_test
