// CheckTaskStatus against the emulated platform: a task's instances counted by their lock files.
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "PatchRunTestSupport.h"
#include "RkCommonUtil.h"
#include "RkRPXInit.h"

using namespace patch_test;

namespace {

class CheckTaskStatusTest : public PatchRunTest {
protected:
    void SetUp() override {
        PatchRunTest::SetUp();
        Shell("mkdir -p '" + base_ + "/rpxtemp'");
    }
    void TearDown() override {
        if (lockFd_ >= 0) close(lockFd_);
        Shell("rm -rf '" + base_ + "'");
        PatchRunTest::TearDown();
    }
    std::string LockFile(const std::string& name) {
        std::string path = base_ + "/rpxtemp/" + name;
        WriteFile(path, "");
        return path;
    }
    // An open-file-description lock conflicts with the probe of this same process, as the
    // lock of another running instance does.
    bool HoldLock(const std::string& path) {
        lockFd_ = open(path.c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        return lockFd_ >= 0 && fcntl(lockFd_, F_OFD_SETLK, &lock) == 0;
    }
    int Check(bool removeStale, char* dataDirectory) {
        running_ = stale_ = -1;
        return RkCommonUtil::CheckTaskStatus("updrpx", &running_, &stale_, removeStale, dataDirectory);
    }

    std::string base_ = ServerFolder() + "/tasks";
    int lockFd_ = -1;
    int running_ = -1;
    int stale_ = -1;
};

}  // namespace

TEST_F(CheckTaskStatusTest, CountsLockFilesOfTheTaskByNameAndLock) {
    std::string held = LockFile("UPDRPX{1234}");
    LockFile("updrpx{77}");
    for (const char* other : {"updrpx1", "updrpx.pid", "xupdrpx{1}", "rpxreal{5}"}) LockFile(other);
    ASSERT_TRUE(HoldLock(held));

    EXPECT_EQ(Check(false, &base_[0]), 0);
    EXPECT_EQ(running_, 1);
    EXPECT_EQ(stale_, 1);
    EXPECT_TRUE(FileExists(base_ + "/rpxtemp/updrpx{77}")) << "nothing removed unless asked";

    EXPECT_EQ(Check(true, &base_[0]), 0);
    EXPECT_EQ(stale_, 1);
    EXPECT_FALSE(FileExists(base_ + "/rpxtemp/updrpx{77}"));
    EXPECT_TRUE(FileExists(held));
    EXPECT_TRUE(FileExists(base_ + "/rpxtemp/updrpx1"));
}

TEST_F(CheckTaskStatusTest, OwnLockFileRunsAndDataDirectoryIsTheDefault) {
    std::string own = TempFolder() + "/UpdRpx{42}";
    WriteFile(own, "");
    ASSERT_TRUE(gRPXInit.SetLockFilePath(own.c_str()));
    int result = Check(true, nullptr);
    gRPXInit.SetLockFilePath("");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(running_, 1);
    EXPECT_EQ(stale_, 0);
    EXPECT_EQ(Check(true, nullptr), 0);
    EXPECT_EQ(stale_, 1) << "once it is no longer the task's own";
    EXPECT_FALSE(FileExists(own));

    std::string missing = ServerFolder() + "/nowhere";
    EXPECT_EQ(Check(false, &missing[0]), -1);
    EXPECT_EQ(running_, 0);
    EXPECT_EQ(stale_, 0);
}
