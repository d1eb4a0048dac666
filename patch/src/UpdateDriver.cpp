// UpdateDatabase: walks the shipped files of the settings, replacing each live database while it
// is offline, then rebuilds, stamps, signs and restarts. Takes databases offline and online,
// waits idly and sends console commands, so it needs the server half of the platform.
#include <unistd.h>

#include <cstring>
#include <string>

#include "addin.h"
#include "nsfdb.h"
#include "nsferr.h"
#include "osmisc.h"

#include "ConfigMigration.h"
#include "DatabaseMaintenance.h"
#include "PatchRunSteps.h"
#include "RkCommonUtil.h"

namespace {

const DWORD kOfflineWaitMs = 10000;
const int kMaxOfflineWaits = 60;
const DWORD kInUseDelayMs = 1000;
const unsigned int kConvertSettleMs = 3000;
const int kOldPatternBuild = 3050;
const char kConfigTemplate[] = "rpconf.ntf";
constexpr size_t kCommandSize = 1024;

// Takes the live database offline, waiting while it is in use. NOERROR also when there is no
// live file (a new database is being installed).
STATUS TakeOffline(const ItemPaths& paths) {
    if (access(paths.target, F_OK) != 0) {
        LogDebugMessage(1, "Database does not exist, do not bring it offline. (%s)", paths.target);
        return NOERROR;
    }
    STATUS status = NSFTakeDatabaseOffline(paths.notesPath, kOfflineWaitMs, OFFLINE_NODELETE);
    for (int retry = 0; ERR(status) == ERR_DBINUSE;) {
        LogDebugMessage(0, "DB in use, waiting. Retry: %d.", retry);
        AddInIdleDelay(kInUseDelayMs);
        if (++retry >= kMaxOfflineWaits) break;
        status = NSFTakeDatabaseOffline(paths.notesPath, kOfflineWaitMs, OFFLINE_NODELETE);
    }
    if (status != NOERROR) {
        LogDebugMessage(1, "Bring database offline. (%s):(%x)", paths.target, static_cast<unsigned>(status));
        return status;
    }
    LogDebugMessage(1, "Bring database offline successfully. (%s)", paths.target);
    return NOERROR;
}

void BringOnline(const ItemPaths& paths) {
    STATUS status = NSFBringDatabaseOnline(paths.notesPath, 0);
    LogDebugMessage(1, "Bring database online. (%s):(%x)", paths.target, static_cast<unsigned>(status));
}

// Stamps the template and has the server's convert task apply it to its database. The driver
// does not wait for the conversion beyond a fixed pause.
void ConvertTemplate(const ItemPaths& paths, const char* templateName) {
    LogDebugMessage(1, "Enter ntfStr switch.");
    StampTemplateBuild(paths.notesPath, BuildNumber);
    char command[kCommandSize];
    if (!BuildConvertCommand(templateName, command, sizeof command)) return;
    RkCommonUtil::RunConsoleCommandRemote(command);
    LogDebugMessage(1, "Run command %s", command);
    RkCommonUtil::RkSleep(kConvertSettleMs);
}

// Returns the status of a take-offline that failed; the walk then ends.
STATUS ReplaceDatabase(const std::string& name, const ItemPaths& paths, PatchSetting& setting,
                       DHANDLE* acl) {
    if (name.find(".nsf") != std::string::npos) ReadPatternAcl(acl);
    STATUS status = TakeOffline(paths);
    if (status != NOERROR) return status;
    CopyDatabaseFile(paths);
    BringOnline(paths);
    std::string preparedName = name;
    PrepareDatabase(&preparedName[0], setting);
    if (name.find(".ntf") != std::string::npos) {
        ConvertTemplate(paths, name.c_str());
    } else {
        StoreAclInto(paths, *acl);
    }
    if (name == kConfigTemplate) UpdateRPXConfigue();
    return NOERROR;
}

STATUS WalkDatabases(const DriverFolders& folders, PatchSetting& setting) {
    DHANDLE acl = NULLHANDLE;
    for (const std::string& name : setting.databases) {
        ItemPaths paths;
        if (!BuildItemPaths(folders, name, paths)) continue;
        if (IsDlpPolicyFile(name)) {
            CopyDlpPolicyFile(paths);
            continue;
        }
        STATUS status = ReplaceDatabase(name, paths, setting, &acl);
        if (status != NOERROR) {
            ReleaseAcl(&acl);
            return status;
        }
    }
    ReleaseAcl(&acl);
    return NOERROR;
}

void FinishPatch(const PatchSetting& setting) {
    if (setting.runningDbBuild < kOldPatternBuild) UpdateRpency();
    SetAllDatabasesBuild();
    char folder[256];
    memset(folder, 0, sizeof folder);
    OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, "rpx", 3, folder, sizeof folder - 1);
    SignAndChangeReplicaDatabase(folder);
    char restart[] = "tell rpxreal restart";
    RkCommonUtil::RunConsoleCommandRemote(restart);
}

}  // namespace

STATUS UpdateDatabase(PatchSetting& setting) {
    if (!PatchApplies(setting)) return NOERROR;
    // These two run before any file is touched, whatever they return.
    UpdateExpresionDocID();
    RemoveDuplicatedUserDefinedDigitalAssert();
    if (setting.databases.empty()) return NOERROR;

    DriverFolders folders;
    if (!GetDriverFolders(folders)) return 1;
    // Before the walk: every replaced database receives the pattern database's ACL.
    RestoreInterruptedRpencyRebuild();
    STATUS status = WalkDatabases(folders, setting);
    if (status != NOERROR) return status;
    FinishPatch(setting);
    return NOERROR;
}
