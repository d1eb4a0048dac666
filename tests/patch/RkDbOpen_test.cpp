// RkDbOpen: the data directory, "/" and the name, cut to whole characters within 257 bytes, and
// the status of the open of that path.
#include <string>

#include "PatchTestServer.h"
#include "RkCommonUtil.h"
#include "nsferr.h"
#include "oserr.h"

namespace patch_test {
namespace {

class RkDbOpenTest : public PatchPlatformTest {};

TEST_F(RkDbOpenTest, OpensBelowTheDataDirectoryAndGivesTheOpenStatus) {
    NSFDbClose(FreshDatabase("rpx/rkdbopen.nsf"));
    unsigned int db = NULLHANDLE;
    ASSERT_EQ(RkCommonUtil::RkDbOpen("rpx/rkdbopen.nsf", &db), NOERROR);
    EXPECT_NE(db, NULLHANDLE);
    NSFDbClose(db);
    EXPECT_EQ(ERR(RkCommonUtil::RkDbOpen("rpx/none.nsf", &db)), ERR_NOEXIST);
}

TEST_F(RkDbOpenTest, LongNamesAreCutAndTheCutPathIsOpened) {
    // A name whose first bytes, with the data directory and "/", fill the 256 bytes exactly and
    // name an existing database: the rest of the name is cut off.
    size_t room = 256 - DataFolder().size() - 1;
    ASSERT_GT(room, 20u);
    std::string name = "rpx/" + std::string(room - 8, 'c') + ".nsf";
    ASSERT_EQ(name.size(), room);
    NSFDbClose(FreshDatabase(name));
    unsigned int db = NULLHANDLE;
    EXPECT_EQ(RkCommonUtil::RkDbOpen((name + "/beyond/the/buffer.nsf").c_str(), &db), NOERROR);
    EXPECT_NE(db, NULLHANDLE);
    NSFDbClose(db);
    // Not refused with -1: the platform's answer for the cut path.
    EXPECT_EQ(ERR(RkCommonUtil::RkDbOpen(std::string(400, 'x').c_str(), &db)), ERR_NOEXIST);
    NSFDbDelete(name.c_str());
}

}  // namespace
}  // namespace patch_test
