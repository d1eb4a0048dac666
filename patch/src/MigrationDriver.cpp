// UpdateRPXConfigue: migrates the documents of rpx/rpconf.nsf once the update driver has put its
// new template in place; and the module's load-time set-up with the migration's shared collections.
#include "global.h"
#include "nsfdb.h"
#include "osmisc.h"

#include <cstdlib>
#include <cstring>

#include "ConfigMigration.h"
#include "PatchRPX.h"
#include "RkCommonUtil.h"

namespace {

// putenv keeps this very text in the environment, so it must live as long as the module.
char gDisableEmSetting[] = "RK_DISABLE_EM=1";

// Defined before the collections below, so the environment is set before they are constructed.
struct ModuleSetUp {
    ModuleSetUp() { putenv(gDisableEmSetting); }
};
const ModuleSetUp gModuleSetUp;

}  // namespace

std::map<std::string, std::string> m_nsf_ObsoleteUNIDMap;
std::set<std::string> m_nsf_ObsoleteUNIDSet;
std::set<std::string> duplicatedUserDefinedDigtalAssertSet;

namespace {

const char kConfigTemplate[] = "rpx/rpconf.ntf";
const unsigned int kDesignRefreshMs = 3000;
constexpr size_t kLmbcsPathSize = 32;
constexpr size_t kCommandSize = 1024;
constexpr size_t kNativePathSize = 256;

void RefreshConfigDesign(const char* lmbcsPath) {
    char command[kCommandSize];
    std::snprintf(command, sizeof command, "load design -f %s", lmbcsPath);
    RkCommonUtil::RunConsoleCommandRemote(command);
    LogDebugMessage(1, "Run command %s", command);
    RkCommonUtil::RkSleep(kDesignRefreshMs);
}

void LogTemplateNotOpened() {
    char nativePath[kNativePathSize];
    std::memset(nativePath, 0, sizeof nativePath);
    OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, kConfigTemplate, sizeof kConfigTemplate - 1, nativePath,
                sizeof nativePath - 1);
    LogDebugMessage(3, "cannot open rpconf.ntf, path: %s", nativePath);
}

void CleanObsoleteReferences(DBHANDLE hDb) {
    if (m_nsf_ObsoleteUNIDSet.empty()) {
        LogDebugMessage(3, "m_nsf_ObsoleteUNIDSet is NULL, so happy!");
        return;
    }
    LogDebugMessage(1, "===========ObsoleteUNIDSet start==============");
    OutputObsoleteSet(m_nsf_ObsoleteUNIDSet);
    LogDebugMessage(1, "===========ObsoleteUNIDSet end==============");
    RemoveObsoleteUNID(hDb);
    ReplaceObsoleteUNID(hDb);
}

}  // namespace

STATUS UpdateRPXConfigue() {
    char lmbcsPath[kLmbcsPathSize];
    std::memset(lmbcsPath, 0, sizeof lmbcsPath);
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, kConfigDatabase, sizeof kConfigDatabase - 1,
                              lmbcsPath, sizeof lmbcsPath);
    lmbcsPath[length < kLmbcsPathSize ? length : kLmbcsPathSize - 1] = '\0';

    RefreshConfigDesign(lmbcsPath);

    DBHANDLE hDb = NULLHANDLE;
    if (NSFDbOpen(lmbcsPath, &hDb) != NOERROR) return NOERROR;
    ChangeConflictAction(hDb);
    CheckDefaultPolicies(hDb);

    // The template path goes to the platform untranslated, unlike the database's above; with the
    // product's ASCII path both forms are the same bytes.
    DBHANDLE hTemplate = NULLHANDLE;
    if (NSFDbOpen(kConfigTemplate, &hTemplate) == NOERROR) {
        UpgradeDLPDocumentFromNTFtoNSF(hTemplate, hDb);
        CleanObsoleteReferences(hDb);
    } else {
        LogTemplateNotOpened();
    }
    NSFDbClose(hDb);
    // hTemplate stays open: the server releases the task's handles when the task ends.
    return NOERROR;
}
