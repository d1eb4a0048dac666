#include "RkCommonUtil.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string MakeTempDir() {
    char pattern[] = "/tmp/rktask_XXXXXX";
    const char* dir = mkdtemp(pattern);
    return dir != nullptr ? dir : "";
}

// Runs a child process that holds a write lock on path until told to go (by closing the pipe).
class LockHolder {
public:
    explicit LockHolder(const std::string& path) {
        int ready[2];
        int release[2];
        if (pipe(ready) != 0 || pipe(release) != 0) return;
        m_child = fork();
        if (m_child == 0) {
            close(ready[0]);
            close(release[1]);
            int fd = ::open(path.c_str(), O_RDWR);
            struct flock lock {};
            lock.l_type = F_WRLCK;
            lock.l_whence = SEEK_SET;
            bool locked = fd >= 0 && fcntl(fd, F_SETLK, &lock) == 0;
            char byte = locked ? 1 : 0;
            (void)!write(ready[1], &byte, 1);
            (void)!read(release[0], &byte, 1);  // returns when the parent closes its end
            _exit(0);
        }
        close(ready[1]);
        close(release[0]);
        m_release = release[1];
        char byte = 0;
        m_locked = read(ready[0], &byte, 1) == 1 && byte == 1;
        close(ready[0]);
    }
    ~LockHolder() {
        if (m_release >= 0) close(m_release);
        if (m_child > 0) waitpid(m_child, nullptr, 0);
    }
    bool locked() const { return m_locked; }

private:
    pid_t m_child = -1;
    int m_release = -1;
    bool m_locked = false;
};

}  // namespace

TEST(RkTaskUtil, ExecCommandAppendsTheWholeOutput) {
    std::string output = "before:";
    // More than one fgets piece, so the pieces must be joined in order.
    ASSERT_TRUE(ExecCommand("printf 'x%.0s' $(seq 1 300); echo; echo second", output));
    EXPECT_EQ(output, "before:" + std::string(300, 'x') + "\nsecond\n");
}

TEST(RkTaskUtil, FileLockedOnlyWhileAnotherProcessHoldsIt) {
    std::string dir = MakeTempDir();
    std::string path = dir + "/updrpx{1234}";
    std::ofstream(path) << "pid";

    EXPECT_FALSE(RkCommonUtil::isFileLocked(const_cast<char*>(path.c_str())));
    {
        LockHolder holder(path);
        ASSERT_TRUE(holder.locked());
        EXPECT_TRUE(RkCommonUtil::isFileLocked(const_cast<char*>(path.c_str())));
    }
    EXPECT_FALSE(RkCommonUtil::isFileLocked(const_cast<char*>(path.c_str())));
    std::string missing = dir + "/missing";
    EXPECT_FALSE(RkCommonUtil::isFileLocked(const_cast<char*>(missing.c_str())));
    std::system(("rm -rf " + dir).c_str());
}

TEST(RkTaskUtil, DirectoryReaderWalksEveryEntry) {
    std::string dir = MakeTempDir();
    std::ofstream(dir + "/a.txt") << "a";
    ASSERT_EQ(mkdir((dir + "/sub").c_str(), 0755), 0);

    RkDirectory reader;
    EXPECT_EQ(reader.Next(), -2);  // not open yet
    ASSERT_EQ(reader.Open(dir.c_str()), 0);
    std::set<std::string> names;
    int subIsDir = -1, fileIsDir = -1;
    do {
        names.insert(reader.GetFileName());
        if (reader.GetFileName() == "sub") subIsDir = reader.IsDir();
        if (reader.GetFileName() == "a.txt") fileIsDir = reader.IsDir();
    } while (reader.Next() == 0);
    EXPECT_EQ(names, (std::set<std::string>{".", "..", "a.txt", "sub"}));
    EXPECT_EQ(subIsDir, 1);
    EXPECT_EQ(fileIsDir, 0);
    EXPECT_EQ(reader.GetFileName(), "");
    reader.Close();
    EXPECT_EQ(reader.IsDir(), -1);

    RkDirectory missing;
    EXPECT_EQ(missing.Open((dir + "/nope").c_str()), -1);
    std::system(("rm -rf " + dir).c_str());
}

TEST(RkTaskUtil, LoadLibraryFailsCleanlyForMissingLibraries) {
    void* handle = nullptr;
    void* entry = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(RPXLoadLibrary("/nonexistent/libnothing.so", 0, &handle, &entry), -1);
    EXPECT_EQ(RPXLoadLibrary("nothing_here", 0, &handle, &entry), -1);
    std::string printed = testing::internal::GetCapturedStdout();
    // The absolute path is reported twice, the relative name once.
    size_t first = printed.find("/nonexistent/libnothing.so\n");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(printed.find("/nonexistent/libnothing.so\n", first + 1), std::string::npos);
    EXPECT_NE(printed.find("nothing_here\n"), std::string::npos);
    EXPECT_EQ(handle, nullptr);
    RPXFreeLibrary(nullptr);  // must be harmless
}

TEST(RkTaskUtil, LoadLibraryWithoutEntryPointIsRefused) {
    void* handle = nullptr;
    void* entry = reinterpret_cast<void*>(1);
    // The C library is present everywhere and has no MainEntryPoint.
    EXPECT_EQ(RPXLoadLibrary("c.so.6", 0, &handle, &entry), -1);
    EXPECT_EQ(entry, nullptr);
    RPXFreeLibrary(handle);
}

TEST(RkTaskUtil, FixedAnswers) {
    EXPECT_EQ(GetAppBits(), 65);
    EXPECT_EQ(RkCommonUtil::GetProcessPid("anything", 0), -1);
    EXPECT_EQ(RkCommonUtil::RkSleep(1), 0);
}
