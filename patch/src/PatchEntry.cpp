// The patch task's load-time set-up and its program-wide state.
#include <cstdlib>

#include "ConfigMigration.h"
#include "PatchRPX.h"

char g_szRkRPXBuildVersion[128] = "5.6.1.3001";

std::map<std::string, std::string> m_nsf_ObsoleteUNIDMap;
std::set<std::string> m_nsf_ObsoleteUNIDSet;
std::set<std::string> duplicatedUserDefinedDigtalAssertSet;

namespace {

// putenv keeps this very text in the environment, so it must live as long as the module.
char gDisableEmSetting[] = "RK_DISABLE_EM=1";

struct ModuleSetUp {
    ModuleSetUp() { putenv(gDisableEmSetting); }
};
const ModuleSetUp gModuleSetUp;

}  // namespace
