#include "RkCommonUtil.h"
#include "RkRPXInit.h"
#include "rk_LOG_CRWLock.h"

#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

const char kTask[] = "rklogtest";

std::vector<std::string> FilesIn(const std::string& dir) {
    std::vector<std::string> names;
    DIR* listing = opendir(dir.c_str());
    if (listing == nullptr) return names;
    while (dirent* entry = readdir(listing)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(listing);
    return names;
}

bool IsLogFileName(const std::string& name) {
    const std::string start = std::string(kTask) + "_";
    if (name.size() != start.size() + 8 + 4 || name.compare(0, start.size(), start) != 0) return false;
    for (size_t i = start.size(); i < start.size() + 8; ++i) {
        if (!isdigit(static_cast<unsigned char>(name[i]))) return false;
    }
    return name.compare(name.size() - 4, 4, ".dbg") == 0;
}

// Replaces the leading "[YYYY/MM/DD HH:MM:SS]" with "[<stamp>]"; a malformed stamp is left.
std::string StripStamp(const std::string& line) {
    const std::string shape = "[dddd/dd/dd dd:dd:dd]";
    if (line.size() < shape.size()) return line;
    for (size_t i = 0; i < shape.size(); ++i) {
        bool ok = shape[i] == 'd' ? isdigit(static_cast<unsigned char>(line[i])) != 0 : line[i] == shape[i];
        if (!ok) return line;
    }
    return "[<stamp>]" + line.substr(shape.size());
}

std::string Ids() {
    std::ostringstream ids;
    ids << "[pid=" << getpid() << "][tid=" << static_cast<unsigned long>(pthread_self()) << "]";
    return ids.str();
}

class RkCommonLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/rklog_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
        ASSERT_TRUE(gRPXInit.SetDebugFolder(m_dir.c_str()));
        ASSERT_TRUE(gRPXInit.SetTaskName(kTask));
        gRPXInit.SetDebugLevel(3);
    }
    void TearDown() override {
        gRPXInit.SetDebugLevel(RkRPXInit::DEBUG_OFF);
        std::system(("rm -rf '" + m_dir + "'").c_str());
    }

    // The log file's lines, each with its "\n", after checking that it is the only file.
    std::vector<std::string> Lines() {
        std::vector<std::string> files = FilesIn(m_dir);
        if (files.empty()) return {};
        EXPECT_EQ(files.size(), 1u);
        EXPECT_TRUE(IsLogFileName(files[0])) << files[0];
        std::ifstream in(m_dir + "/" + files[0], std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(StripStamp(line) + "\n");
        return lines;
    }

    std::string m_dir;
};

TEST_F(RkCommonLogTest, FullFormLayout) {
    RkCommonUtil::LogDebugMessage("src/a.cpp", 42, 1, "value %d %s", 7, "x");
    RkCommonUtil::LogDebugMessage("src/a.cpp", 12345, 0, "wide line number");
    std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "[<stamp>]" + Ids() + "[module=00000001] [" + std::string(26, ' ') +
                            "src/a.cpp(  42)]:value 7 x\n");
    EXPECT_EQ(lines[1], "[<stamp>]" + Ids() + "[module=00000000] [" + std::string(26, ' ') +
                            "src/a.cpp(12345)]:wide line number\n");
}

TEST_F(RkCommonLogTest, ShortFormLayout) {
    RkCommonUtil::LogDebugMessage(13, "hello %s %d", "there", 5);  // 13 mod 4 = 1: written
    std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "[<stamp>]" + Ids() + "[module=d]:hello there 5\n");
}

TEST_F(RkCommonLogTest, LevelFilter) {
    gRPXInit.SetDebugLevel(1);
    for (int level : {0, 1, 2, 3, 5, 6}) RkCommonUtil::LogDebugMessage("f", 1, level, "L%d", level);
    RkCommonUtil::LogDebugMessage(2, "short 2");
    RkCommonUtil::LogDebugMessage(5, "short 5");
    std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_NE(lines[0].find("]:L0\n"), std::string::npos);
    EXPECT_NE(lines[1].find("]:L1\n"), std::string::npos);
    EXPECT_NE(lines[2].find("]:L5\n"), std::string::npos);
    EXPECT_NE(lines[3].find("]:short 5\n"), std::string::npos);
}

TEST_F(RkCommonLogTest, NothingWrittenWhenOff) {
    gRPXInit.SetDebugLevel(RkRPXInit::DEBUG_OFF);
    RkCommonUtil::LogDebugMessage("f", 1, 0, "off");
    RkCommonUtil::LogDebugMessage(0, "off");
    EXPECT_TRUE(FilesIn(m_dir).empty());
}

TEST_F(RkCommonLogTest, LongMessageCutOnlyInFullForm) {
    std::string longText(3000, 'x');
    RkCommonUtil::LogDebugMessage("f", 1, 0, "%s", longText.c_str());
    RkCommonUtil::LogDebugMessage(0, "%s", longText.c_str());
    std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 2u);
    std::string full = lines[0].substr(lines[0].find("]:") + 2);
    std::string brief = lines[1].substr(lines[1].find("]:") + 2);
    EXPECT_EQ(full, std::string(2047, 'x') + "\n");
    EXPECT_EQ(brief, longText + "\n");
}

TEST_F(RkCommonLogTest, BadSettingsWriteNothing) {
    RkCommonUtil::LogDebugMessage("f", 1, 0, nullptr);
    RkCommonUtil::LogDebugMessage(0, nullptr);
    // Too long for a file name: a cut name would land somewhere else, so nothing is written.
    std::string longFolder = m_dir;
    while (longFolder.size() < 300) longFolder += "/.";
    ASSERT_TRUE(gRPXInit.SetDebugFolder(longFolder.c_str()));
    RkCommonUtil::LogDebugMessage("f", 1, 0, "too long");
    ASSERT_TRUE(gRPXInit.SetDebugFolder((m_dir + "/missing").c_str()));
    RkCommonUtil::LogDebugMessage(0, "no folder");
    EXPECT_TRUE(FilesIn(m_dir).empty());

    EXPECT_FALSE(gRPXInit.SetTaskName(std::string(RkRPXInit::TASK_NAME_SIZE, 't').c_str()));
    EXPECT_FALSE(gRPXInit.SetTaskName(nullptr));
    EXPECT_STREQ(gRPXInit.GetTaskName(), kTask);
}

TEST_F(RkCommonLogTest, WritesWaitForTheLogLock) {
    // Ten reads since a write, so that a waiting writer makes a try-read fail: that is how the
    // test sees the log call waiting.
    ASSERT_EQ(gLogLock.StartWriting(), 0);
    ASSERT_EQ(gLogLock.EndWriting(), 0);
    for (int i = 0; i < 10; ++i) ASSERT_EQ(gLogLock.StartReading(), 0);
    std::thread logger([] { RkCommonUtil::LogDebugMessage(0, "after the readers"); });
    bool writerWaits = false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!writerWaits && std::chrono::steady_clock::now() < deadline) {
        if (gLogLock.TryReading() == 0) {
            gLogLock.EndReading();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        } else {
            writerWaits = true;
        }
    }
    EXPECT_TRUE(writerWaits);
    EXPECT_TRUE(Lines().empty());
    for (int i = 0; i < 10; ++i) EXPECT_EQ(gLogLock.EndReading(), 0);
    logger.join();
    std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("]:after the readers\n"), std::string::npos);
}

}  // namespace
