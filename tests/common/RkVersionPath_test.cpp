#include "RkVersionPath.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

struct Parsed {
    int major = -9, minor = -9, third = -9, fourth = -9;
    bool operator==(const Parsed& o) const {
        return major == o.major && minor == o.minor && third == o.third && fourth == o.fourth;
    }
};

std::ostream& operator<<(std::ostream& out, const Parsed& v) {
    return out << v.major << "." << v.minor << "." << v.third << "." << v.fourth;
}

Parsed Parse(const char* path) {
    Parsed v;
    RkParseVersionStr(path, &v.major, &v.minor, &v.third, &v.fourth);
    return v;
}

Parsed V(int a, int b, int c, int d) {
    Parsed v;
    v.major = a, v.minor = b, v.third = c, v.fourth = d;
    return v;
}

class VersionPathTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/rkversion_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        base = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(base, ignored);
    }
    void Folder(const std::string& relative) { fs::create_directories(base + "/" + relative); }

    std::string Latest(const std::string& from, const char* sub) {
        char out[256];
        return GetLatestPathN(from.c_str(), sub, out, sizeof(out)) ? out : "(null)";
    }

    std::string base;
};

TEST(VersionParseTest, ReadsTheLastComponentAfterItsFirstCharacter) {
    EXPECT_EQ(Parse("/opt/x/program/V5.6.1.3001"), V(5, 6, 1, 3001));
    EXPECT_EQ(Parse("/opt/x/program/V5.6.1.3001/"), V(5, 6, 1, 3001));
    EXPECT_EQ(Parse("c:\\x\\V7.2"), V(7, 2, 0, 0));
    EXPECT_EQ(Parse("V9"), V(9, 0, 0, 0));
    EXPECT_EQ(Parse("V5.6.1"), V(5, 6, 0, 1));  // three numbers: the last goes to the fourth place
    EXPECT_EQ(Parse("5.6.1.3001"), V(0, 0, 0, 0));  // the "5" is taken for the "V"
    EXPECT_EQ(Parse("Vabc"), V(0, 0, 0, 0));
    EXPECT_EQ(Parse(""), V(0, 0, 0, 0));
    EXPECT_EQ(Parse("/"), V(0, 0, 0, 0));
    EXPECT_EQ(Parse(nullptr), Parsed());  // outputs untouched
    // Longer than the working buffer: read from its first 1023 bytes, never beyond.
    EXPECT_EQ(Parse(("V1.2" + std::string(5000, 'x')).c_str()), V(1, 2, 0, 0));
}

TEST(VersionParseTest, ComparesNumbersNotText) {
    EXPECT_EQ(RkVersionStrCmp("V5.6.1.3001", "V5.6.1.3002"), -1);
    EXPECT_EQ(RkVersionStrCmp("V5.6.1.3001", "V5.6.1.999"), 1);
    EXPECT_EQ(RkVersionStrCmp("V10.0", "V9.9.9.9"), 1);
    EXPECT_EQ(RkVersionStrCmp("V5.6.1", "V5.6.0.1"), 0);
    EXPECT_EQ(RkVersionStrCmp("5.6.1.3001", "5.6.1.3002"), 0);
    EXPECT_EQ(RkVersionStrCmp("V5.7", "V5.6.9.9"), 1);
}

TEST_F(VersionPathTest, PicksNewestAndOldestFolders) {
    Folder("program/V5.6.1.999");
    Folder("program/V5.6.1.3001");
    Folder("program/V5.6.0");
    std::ofstream(base + "/program/V6.0.0.1") << "not a folder";
    Folder("program/other");

    EXPECT_EQ(Latest(base, "program"), base + "/program/V5.6.1.3001");
    EXPECT_EQ(Latest(base + "/", "program"), base + "/program/V5.6.1.3001");
    EXPECT_EQ(GetPathCountN(base.c_str(), "program"), 3);
    EXPECT_EQ(GetPathCountN((base + "/").c_str(), "program"), 3);

    char out[256];
    ASSERT_EQ(GetOldestPathN(base.c_str(), "program", out, sizeof(out)), out);
    EXPECT_EQ(std::string(out), base + "/program/V5.6.0");

    Folder("engine/kestrel/V9.9.9.9");
    Folder("engine/kestrel/V10.0");
    EXPECT_EQ(Latest(base, "engine/kestrel"), base + "/engine/kestrel/V10.0");

    // A short result buffer gets a cut, zero-ended path.
    char small[8];
    memset(small, 'x', sizeof(small));
    ASSERT_EQ(GetLatestPathN(base.c_str(), "program", small, sizeof(small)), small);
    EXPECT_EQ(std::string(small), (base + "/program").substr(0, 7));
}

TEST_F(VersionPathTest, NoVersionFolders) {
    Folder("program");
    char out[64];
    strcpy(out, "untouched");
    EXPECT_EQ(GetPathCountN(base.c_str(), "program"), 0);
    EXPECT_EQ(GetPathCountN(base.c_str(), "missing"), 0);
    EXPECT_EQ(GetLatestPathN(base.c_str(), "program", out, sizeof(out)), nullptr);
    // The oldest search returns its buffer unwritten when there is nothing to choose.
    EXPECT_EQ(GetOldestPathN(base.c_str(), "program", out, sizeof(out)), out);
    EXPECT_STREQ(out, "untouched");

    // A folder whose major is 0 is written but not reported.
    Folder("pattern/V0.5");
    EXPECT_EQ(GetLatestPathN(base.c_str(), "pattern", out, sizeof(out)), nullptr);
    EXPECT_EQ(std::string(out), (base + "/pattern/V0.5").substr(0, sizeof(out) - 1));

    EXPECT_EQ(GetPathCountN("", "program"), -1);
    EXPECT_EQ(GetPathCountN(nullptr, "program"), -1);
    EXPECT_EQ(GetLatestPathN(std::string(1021, 'a').c_str(), "p", out, sizeof(out)), nullptr);
    EXPECT_EQ(GetOldestPathN(std::string(1021, 'a').c_str(), "p", out, sizeof(out)), nullptr);
}

// The pattern base/sub/V* is cut at 1023 bytes; what the cut pattern names is then listed.
TEST_F(VersionPathTest, LongPatternsAreCutNotRefused) {
    // Real folders make a base of exactly `length` bytes.
    auto deepBase = [&](size_t length) {
        std::string path = base;
        while (path.size() < length) path += "/" + std::string(std::min<size_t>(200, length - path.size() - 1), 'd');
        fs::create_directories(path);
        return path;
    };
    std::string base1020 = deepBase(1020);
    ASSERT_EQ(base1020.size(), 1020u);
    fs::create_directories(base1020 + "/program/V5.6.1.3001");
    fs::create_directories(base1020 + "/pr/V9");
    char out[64];
    // "/pr" fills the pattern, so the folder pr is listed, not program.
    EXPECT_EQ(GetPathCountN(base1020.c_str(), "program"), 1);
    fs::remove_all(base1020 + "/pr");
    strcpy(out, "untouched");
    EXPECT_EQ(GetPathCountN(base1020.c_str(), "program"), 0);
    EXPECT_EQ(GetLatestPathN(base1020.c_str(), "program", out, sizeof(out)), nullptr);
    EXPECT_EQ(GetOldestPathN(base1020.c_str(), "program", out, sizeof(out)), out);
    EXPECT_STREQ(out, "untouched");

    // A long sub leaves no room for "/V*": the cut folder does not exist.
    Folder("program/V5.6.1.3001");
    EXPECT_EQ(GetPathCountN(base.c_str(), std::string(1100, 's').c_str()), 0);
    EXPECT_EQ(GetLatestPathN(base.c_str(), std::string(1100, 's').c_str(), out, sizeof(out)), nullptr);
}

}  // namespace
