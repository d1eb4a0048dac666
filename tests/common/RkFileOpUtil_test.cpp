#include "RkFileOpUtil.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Op = RkRPXFileOpUtil;

struct Step {
    int operation;
    int done;
    std::string source;
    std::string target;
    bool operator==(const Step& other) const {
        return operation == other.operation && done == other.done && source == other.source &&
               target == other.target;
    }
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << "{" << step.operation << "," << step.done << "," << step.source << ","
               << step.target << "}";
}

// Records every callback and answers with whatever `answer` decides (0 unless set).
struct Recorder {
    std::vector<Step> steps;
    std::function<int(const Step&)> answer;
    Op::CallbackEntry record{};

    Recorder() {
        record.size = sizeof(Op::CallbackEntry);
        record.context = this;
    }
    static int32_t Callback(Op::CallbackEntry* entry) {
        auto* self = static_cast<Recorder*>(entry->context);
        self->steps.push_back({entry->operation, entry->done, entry->source ? entry->source : "",
                               entry->target ? entry->target : ""});
        return self->answer ? self->answer(self->steps.back()) : 0;
    }
};

class FileOpTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/rkfileop_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    std::string P(const std::string& relative) const { return root + "/" + relative; }
    void Write(const std::string& relative, const std::string& content) const {
        fs::create_directories(fs::path(P(relative)).parent_path());
        std::ofstream(P(relative), std::ios::binary) << content;
    }
    std::string Read(const std::string& relative) const {
        std::ifstream in(P(relative), std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    bool Exists(const std::string& relative) const {
        return fs::exists(fs::symlink_status(P(relative)));
    }
    void MakeDir(const std::string& relative) const { fs::create_directories(P(relative)); }

    std::string root;
};

TEST(FileOpPathTest, SplitsPathsAtTheLastSlash) {
    EXPECT_EQ(Op::getDirName("a/b/"), "a/b/");
    EXPECT_EQ(Op::getDirName("a/b/c.nsf"), "a/b/");
    EXPECT_EQ(Op::getDirName("name"), "");
    EXPECT_EQ(Op::getDirName("/x"), "");  // not "/"
    EXPECT_EQ(Op::getDirName(nullptr), "");
    EXPECT_EQ(Op::getFileName("a/b/"), "");
    EXPECT_EQ(Op::getFileName("a/b/c.nsf"), "c.nsf");
    EXPECT_EQ(Op::getFileName(nullptr), "");
    EXPECT_TRUE(Op::isDirName("a/"));
    EXPECT_FALSE(Op::isDirName("a"));
}

TEST(FileOpPathTest, MatchesWildcardsByteForByte) {
    EXPECT_FALSE(_fnmatch("*.nsf", "a.NSF"));
    EXPECT_FALSE(_fnmatch("a?c", "ac"));
    EXPECT_TRUE(_fnmatch("*", ".hidden"));
    EXPECT_TRUE(_fnmatch("*", ""));
    EXPECT_TRUE(_fnmatch("*ab", "aab"));  // needs the star to give back a byte
    EXPECT_TRUE(_fnmatch("a*b*c", "aXbYbZc"));
    EXPECT_FALSE(_fnmatch("a*b*c", "aXbYbZ"));
    EXPECT_FALSE(_fnmatch("V*", "v5"));
    EXPECT_FALSE(_fnmatch("abc", "abcd"));
    EXPECT_FALSE(_fnmatch(nullptr, "a"));
    // Many stars against a long near-miss must still end quickly.
    EXPECT_FALSE(_fnmatch("*a*a*a*a*a*a*a*a*a*a*a*a*b", std::string(250, 'a').c_str()));
    EXPECT_TRUE(isWildcardName("d/*.ntf"));
    EXPECT_FALSE(isWildcardName("d/x.ntf"));
    EXPECT_FALSE(isWildcardName(nullptr));
}

TEST_F(FileOpTest, IsDirDoesNotFollowSymbolicLinks) {
    MakeDir("d");
    Write("f", "x");
    ASSERT_EQ(symlink(P("d").c_str(), P("link").c_str()), 0);
    EXPECT_TRUE(Op::isDir(P("d").c_str()));
    EXPECT_TRUE(Op::isDir(P("d/").c_str()));
    EXPECT_FALSE(Op::isDir(P("link").c_str()));
    EXPECT_FALSE(Op::isDir(P("link/").c_str()));
    EXPECT_FALSE(Op::isDir(P("f").c_str()));
    EXPECT_FALSE(Op::isDir(P("missing").c_str()));
    EXPECT_TRUE(Op::isEmptyDir(P("d").c_str()));
    EXPECT_FALSE(Op::isEmptyDir(root.c_str()));
    EXPECT_TRUE(Op::filesizeEqualTo(P("f").c_str(), 1));
    EXPECT_FALSE(Op::filesizeEqualTo(P("f").c_str(), 2));
    EXPECT_FALSE(Op::filesizeEqualTo(P("missing").c_str(), 0));
}

TEST_F(FileOpTest, DirListFiltersAndCountsFiles) {
    Write("d/a.ntf", "1");
    Write("d/b.nsf", "2");
    MakeDir("d/c.ntf");
    RkRPXDirList all(P("d").c_str());  // a folder without "/" lists its entries
    EXPECT_EQ(all.getFilter(), "*");
    EXPECT_EQ(all.getFileCount(), 2);
    RkRPXDirList templates(P("d\\*.ntf").c_str());
    EXPECT_EQ(templates.getFilter(), "*.ntf");
    std::vector<std::string> seen;
    while (templates.hasNext()) seen.push_back(templates.getNext());
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{P("d/a.ntf"), P("d/c.ntf")}));
    EXPECT_EQ(templates.getNext(), "");
    EXPECT_FALSE(RkRPXDirList(P("missing/*").c_str()).hasNext());
}

TEST_F(FileOpTest, CopyCreatesParentsAndHonoursOverwrite) {
    Write("t/new.ntf", "new");
    EXPECT_EQ(Op::copy(P("t/new.ntf").c_str(), P("d/sub/x.ntf").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("d/sub/x.ntf"), "new");

    Write("d/sub/x.ntf", "old");
    EXPECT_EQ(Op::copy(P("t/new.ntf").c_str(), P("d/sub/x.ntf").c_str(), false, nullptr, nullptr),
              Op::RK_FOP_DESTINATION_EXISTS);
    EXPECT_EQ(Read("d/sub/x.ntf"), "old");

    // A file onto itself would be emptied by opening it for writing.
    EXPECT_EQ(Op::copy(P("t/new.ntf").c_str(), P("t/new.ntf").c_str(), true, nullptr, nullptr),
              Op::RK_FOP_BAD_ARGUMENT);
    EXPECT_EQ(Read("t/new.ntf"), "new");

    EXPECT_EQ(Op::copy(P("t/missing").c_str(), P("d/y").c_str(), true, nullptr, nullptr),
              Op::RK_FOP_SOURCE_OPEN_FAILED);
    MakeDir("d/dir.ntf");
    EXPECT_EQ(Op::copy(P("t/new.ntf").c_str(), P("d/dir.ntf/").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("d/dir.ntf/new.ntf"), "new");
    // An existing folder given without "/" receives the file under its own name.
    EXPECT_EQ(Op::copy(P("t/new.ntf").c_str(), P("d/sub").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("d/sub/new.ntf"), "new");
}

TEST_F(FileOpTest, CopyOfLargeFileStreamsEveryByte) {
    std::string content;
    for (int i = 0; i < 600 * 1024; ++i) content += static_cast<char>(i * 7 % 251);
    Write("big", content);
    ASSERT_EQ(Op::copy(P("big").c_str(), P("out/big").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("out/big"), content);
    EXPECT_TRUE(Op::comp(P("big").c_str(), P("out/big").c_str()));
}

// Sources and destinations the kernel will not copy between must still be copied, or fail, as a
// stream copy does: a file whose size the system reports as 0 but that has content, a device.
TEST_F(FileOpTest, CopyFromAndToSpecialFilesBehavesAsAStreamCopy) {
    std::ifstream version("/proc/version", std::ios::binary);
    std::string expected((std::istreambuf_iterator<char>(version)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(Op::copy("/proc/version", P("version").c_str(), false, nullptr, nullptr), 0);
    EXPECT_EQ(Read("version"), expected);

    Write("some", std::string(70000, 'x'));
    ASSERT_EQ(::symlink("/dev/full", P("full").c_str()), 0);
    EXPECT_EQ(Op::copy(P("some").c_str(), P("full").c_str(), true, nullptr, nullptr), Op::RK_FOP_SHORT_WRITE);
}

TEST_F(FileOpTest, CopyOverALongerFileLeavesExactlyTheSource) {
    Write("long", std::string(300000, 'L'));
    Write("short", std::string(1000, 's'));
    ASSERT_EQ(Op::copy(P("short").c_str(), P("long").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("long"), std::string(1000, 's'));
}

TEST_F(FileOpTest, CopyWildcardTakesOnlyMatchingPlainFiles) {
    Write("a/x.ntf", "x");
    Write("a/y.nsf", "y");
    Write("a/sub.ntf/inner.ntf", "i");
    EXPECT_EQ(Op::copy(P("a/*.ntf").c_str(), P("b/").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("b/x.ntf"), "x");
    EXPECT_FALSE(Exists("b/y.nsf"));
    EXPECT_FALSE(Exists("b/sub.ntf"));
    EXPECT_EQ(Op::copy(P("a/*.zzz").c_str(), P("c/").c_str(), true, nullptr, nullptr), 0);

    EXPECT_EQ(Op::copy(P("a/*.ntf").c_str(), P("b/file").c_str(), true, nullptr, nullptr),
              Op::RK_FOP_BAD_ARGUMENT);
    EXPECT_EQ(Op::copy(P("a").c_str(), P("b/file").c_str(), true, nullptr, nullptr),
              Op::RK_FOP_BAD_ARGUMENT);
    // The parent of "file" and of "/file" comes out empty and createDir refuses it.
    EXPECT_EQ(Op::copy(P("a/x.ntf").c_str(), "file", true, nullptr, nullptr), Op::RK_FOP_BAD_ARGUMENT);
    EXPECT_EQ(Op::copy(P("a/x.ntf").c_str(), "/file", true, nullptr, nullptr), Op::RK_FOP_BAD_ARGUMENT);
    EXPECT_FALSE(Exists("b/file"));
}

TEST_F(FileOpTest, CreateDirReportsAndReusesTheRecord) {
    MakeDir("e");
    Recorder existing;
    EXPECT_EQ(Op::createDir(P("e").c_str(), Recorder::Callback, &existing.record), 0);
    EXPECT_EQ(existing.steps, (std::vector<Step>{{3, 0, P("e"), ""}, {3, 1, P("e"), ""}}));

    Recorder nested;
    std::string path = P("a/b/c");
    EXPECT_EQ(Op::createDir(path.c_str(), Recorder::Callback, &nested.record), 0);
    EXPECT_TRUE(Op::isDir(path.c_str()));
    // Before-calls outermost first; every after-call still names the deepest level.
    EXPECT_EQ(nested.steps, (std::vector<Step>{{3, 0, P("a/b/c"), ""},
                                              {3, 0, P("a/b/"), ""},
                                              {3, 0, P("a/"), ""},
                                              {3, 1, P("a/"), ""},
                                              {3, 1, P("a/"), ""},
                                              {3, 1, P("a/"), ""}}));

    EXPECT_EQ(Op::createDir("/rk_no_such_top_folder", nullptr, nullptr),
              Op::RK_FOP_DESTINATION_FAILED);
    EXPECT_EQ(Op::createDir("", nullptr, nullptr), Op::RK_FOP_BAD_ARGUMENT);
    Write("plain", "x");
    EXPECT_EQ(Op::createDir(P("plain/sub").c_str(), nullptr, nullptr), Op::RK_FOP_DESTINATION_FAILED);
}

TEST_F(FileOpTest, CallbackSkipsAndAborts) {
    Write("s/a", "a");
    Write("s/b", "b");
    Write("s/c", "c");
    MakeDir("t");

    Recorder skipper;
    skipper.answer = [](const Step& s) {
        return s.done == 0 && Op::getFileName(s.source.c_str()) == "b" ? Op::CB_SKIP : 0;
    };
    EXPECT_EQ(Op::copy(P("s/").c_str(), P("t/").c_str(), false, Recorder::Callback, &skipper.record), 0);
    EXPECT_TRUE(Exists("t/a"));
    EXPECT_FALSE(Exists("t/b"));
    EXPECT_TRUE(Exists("t/c"));
    EXPECT_EQ(skipper.steps.size(), 5u);  // two files before and after, b only before
    for (const Step& step : skipper.steps) EXPECT_EQ(step.operation, Op::OP_COPY_NEW);

    Recorder overwrite;
    EXPECT_EQ(Op::copy(P("s/a").c_str(), P("t/a").c_str(), true, Recorder::Callback, &overwrite.record), 0);
    EXPECT_EQ(overwrite.steps.back(), (Step{Op::OP_COPY_OVERWRITE, 1, P("s/a"), P("t/a")}));

    Recorder stopper;
    int before = 0;
    stopper.answer = [&](const Step& s) {
        return s.operation == Op::OP_COPY_NEW && s.done == 0 && ++before == 2 ? 7 : 0;
    };
    EXPECT_EQ(Op::copy(P("s/").c_str(), P("u/").c_str(), true, Recorder::Callback, &stopper.record), 7);
    EXPECT_EQ(std::distance(fs::directory_iterator(P("u")), fs::directory_iterator()), 1);

    Recorder afterStop;  // an abort after a step stops with the step done
    afterStop.answer = [](const Step& s) {
        return s.done == 1 && s.operation == Op::OP_REMOVE_FILE ? 9 : 0;
    };
    EXPECT_EQ(Op::unlink(P("t/*").c_str(), Recorder::Callback, &afterStop.record), 9);
    EXPECT_EQ(std::distance(fs::directory_iterator(P("t")), fs::directory_iterator()), 1);

    Op::CallbackEntry recordOnly{};  // filled in even with no callback
    EXPECT_EQ(Op::copy(P("s/a").c_str(), P("v/a").c_str(), false, nullptr, &recordOnly), 0);
    EXPECT_EQ(recordOnly.operation, Op::OP_COPY_NEW);
    EXPECT_EQ(recordOnly.done, 1);
}

TEST_F(FileOpTest, UnlinkAndXunlink) {
    EXPECT_EQ(Op::unlink(P("missing").c_str(), nullptr, nullptr), 0);
    Write("d/x.tmp", "1");
    Write("d/y.tmp", "2");
    Write("d/keep", "3");
    Write("d/sub/deep/z", "4");
    EXPECT_EQ(Op::unlink(P("d").c_str(), nullptr, nullptr), 0);
    EXPECT_TRUE(Exists("d/keep"));
    EXPECT_EQ(Op::unlink(P("d/*.tmp").c_str(), nullptr, nullptr), 0);
    EXPECT_FALSE(Exists("d/x.tmp"));
    EXPECT_FALSE(Exists("d/y.tmp"));
    EXPECT_TRUE(Exists("d/keep"));

    // A link inside the tree goes, what it points at stays.
    Write("outside/precious", "p");
    ASSERT_EQ(symlink(P("outside").c_str(), P("d/sub/link").c_str()), 0);
    Recorder removed;
    EXPECT_EQ(Op::xunlink(P("d").c_str(), Recorder::Callback, &removed.record), 0);
    EXPECT_FALSE(Exists("d"));
    EXPECT_EQ(Read("outside/precious"), "p");
    EXPECT_EQ(removed.steps.back(), (Step{Op::OP_REMOVE_DIR, 1, P("d"), ""}));
    EXPECT_EQ(Op::unlink("", nullptr, nullptr), Op::RK_FOP_BAD_ARGUMENT);
}

TEST_F(FileOpTest, XcopyCopiesTheTreeAndMovesDiffer) {
    Write("a/b/top", "t");
    Write("a/b/c/leaf", "l");
    EXPECT_EQ(Op::xcopy(P("a/b/").c_str(), P("x/").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("x/b/top"), "t");
    EXPECT_EQ(Read("x/b/c/leaf"), "l");
    EXPECT_EQ(Op::xcopy(P("a/b").c_str(), P("x/file").c_str(), true, nullptr, nullptr),
              Op::RK_FOP_BAD_ARGUMENT);

    EXPECT_EQ(Op::move(P("a/b").c_str(), P("m/").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("m/top"), "t");
    EXPECT_FALSE(Exists("m/c"));
    EXPECT_TRUE(Exists("a/b/top"));  // a folder source stays

    EXPECT_EQ(Op::xmove(P("a/b").c_str(), P("n/").c_str(), true, nullptr, nullptr), 0);
    EXPECT_EQ(Read("n/b/c/leaf"), "l");
    EXPECT_FALSE(Exists("a/b"));

    EXPECT_EQ(Op::move(P("m/top").c_str(), P("o/top").c_str(), true, nullptr, nullptr), 0);
    EXPECT_FALSE(Exists("m/top"));
    EXPECT_EQ(Read("o/top"), "t");
}

TEST_F(FileOpTest, DirSizeWalkAndWrap) {
    Write("w/a", "12345");
    Write("w/s/b", "123");
    Op::CallbackEntry wrongSize{};
    EXPECT_FALSE(Op::xaccess(P("w").c_str(), nullptr, &wrongSize));
    EXPECT_FALSE(Op::xaccess(P("w").c_str(), nullptr, nullptr));
    EXPECT_EQ(Op::getDirSize(P("w").c_str()), 8);
    EXPECT_EQ(Op::getDirSize(P("w/a").c_str()), 5);
    EXPECT_EQ(Op::getDirSize(P("missing").c_str()), -1);

    // A sparse file of 4 GiB + 2 bytes adds 2 to the 32-bit sum.
    {
        std::ofstream(P("w/s/huge"));
    }
    ASSERT_EQ(truncate(P("w/s/huge").c_str(), (1LL << 32) + 2), 0);
    EXPECT_EQ(Op::getDirSize(P("w").c_str()), 10);

    Recorder walk;
    EXPECT_TRUE(Op::xaccess(P("w/s/").c_str(), Recorder::Callback, &walk.record));
    ASSERT_EQ(walk.steps.size(), 2u);
    EXPECT_EQ(walk.steps[0].operation, Op::OP_VISIT_FILE);
    EXPECT_EQ(walk.steps[1].operation, Op::OP_VISIT_FILE);
}

TEST_F(FileOpTest, CompareAndRename) {
    std::string content(300 * 1024, 'q');
    Write("p", content);
    Write("q", content);
    EXPECT_TRUE(Op::comp(P("p").c_str(), P("q").c_str()));
    content.back() = 'r';
    Write("q", content);
    EXPECT_FALSE(Op::comp(P("p").c_str(), P("q").c_str()));
    Write("short", "q");
    EXPECT_FALSE(Op::comp(P("p").c_str(), P("short").c_str()));
    Write("e1", "");
    Write("e2", "");
    EXPECT_TRUE(Op::comp(P("e1").c_str(), P("e2").c_str()));
    EXPECT_FALSE(Op::comp(P("p").c_str(), P("missing").c_str()));
    MakeDir("d1");
    MakeDir("d2");
    EXPECT_FALSE(Op::comp(P("d1").c_str(), P("d2").c_str()));

    EXPECT_TRUE(Op::rename(P("d1/").c_str(), P("d3/").c_str()));
    EXPECT_TRUE(Op::isDir(P("d3").c_str()));
    EXPECT_FALSE(Op::rename(P("missing").c_str(), P("x").c_str()));
}

TEST_F(FileOpTest, ChangeOwnerQuotesAndRefusesLongPaths) {
    char command[1024];
    ASSERT_TRUE(RkBuildQuotedCommand("chmod -Rf o-w", "a'b", command, sizeof(command)));
    EXPECT_STREQ(command, "chmod -Rf o-w 'a'\\''b'");
    EXPECT_FALSE(RkBuildQuotedCommand("chmod -Rf o-w", std::string(1008, 'x').c_str(), command,
                                      sizeof(command)));
    EXPECT_STREQ(command, "");

    std::string hostile = P("a'; touch ") + P("pwned") + "; '";
    EXPECT_NE(ChangeOwner(&hostile[0]), -1);
    EXPECT_FALSE(Exists("pwned"));

    Write("owned", "x");
    ASSERT_EQ(chmod(P("owned").c_str(), 0606), 0);
    std::string path = P("owned");
    ChangeOwner(&path[0]);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0664u);

    // A path whose commands would not fit runs nothing at all.
    std::string deep = root;
    while (deep.size() < 1000) deep += "/" + std::string(100, 'd');
    fs::create_directories(deep);
    std::string longFile = deep + "/f";
    std::ofstream(longFile) << "x";
    ASSERT_EQ(chmod(longFile.c_str(), 0606), 0);
    EXPECT_EQ(ChangeOwner(&longFile[0]), -1);
    ASSERT_EQ(stat(longFile.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0606u);
}

}  // namespace
