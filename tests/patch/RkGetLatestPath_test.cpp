// RkGetLatestPath against the emulated platform's notes.ini: the component of each index below
// the install folder named by VeltrixInstallPath.
#include <string>

#include "global.h"
#include "osenv.h"

#include "PatchRunTestSupport.h"
#include "RkVersionPath.h"

using namespace patch_test;

namespace {

class RkGetLatestPathTest : public PatchRunTest {
protected:
    static std::string Latest(int index, unsigned long size = 256) {
        char out[256] = "";
        const char* result = RkGetLatestPath(index, out, size);
        return result == nullptr ? "<null>" : result == out ? result : "<not out>";
    }
};

}  // namespace

TEST_F(RkGetLatestPathTest, EachIndexNamesItsComponent) {
    const char* components[] = {nullptr, "program", "engine/kestrel", "engine/whimbrel", "engine/avocet",
                                nullptr, "pattern/whimbrel", "engine/plover"};
    for (int index = 1; index <= 7; ++index) {
        if (components[index] == nullptr) continue;
        std::string folder = InstallFolder() + "/" + components[index];
        Shell("mkdir -p '" + folder + "/V5.6.1.999' '" + folder + "/V5.6.1.3001'");
        EXPECT_EQ(Latest(index), folder + "/V5.6.1.3001") << index;
    }
    EXPECT_EQ(Latest(5), InstallFolder() + "/pattern/kestrel") << "the folder itself, never looked at";
    EXPECT_EQ(Latest(1, 12), (InstallFolder() + "/program/V5.6.1.3001").substr(0, 11));
    for (int index : {0, 8, -1}) EXPECT_EQ(Latest(index), "<null>") << index;
    EXPECT_EQ(RkGetLatestPath(1, nullptr, 256), nullptr);
}

TEST_F(RkGetLatestPathTest, InstallFolderComesFromNotesIni) {
    MakeProgramFolder("V5.6.1.2");
    EXPECT_EQ(Latest(2), "<null>") << "no engine/kestrel folder";

    OSSetEnvironmentVariable("VeltrixInstallPath", (InstallFolder() + "/").c_str());
    EXPECT_EQ(Latest(1), InstallFolder() + "/program/V5.6.1.2") << "a trailing slash changes nothing";

    RestartWithoutSetting("VeltrixInstallPath");
    EXPECT_EQ(Latest(1), "<null>");
    EXPECT_EQ(Latest(5), "<null>");
}
