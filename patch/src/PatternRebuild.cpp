// UpdateRpency: rebuilds an old-format pattern database. Taking it offline (with the waits while
// it is in use) needs the server half of the platform.
#include "addin.h"
#include "nsfdb.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"

namespace {

const int kRebuildLogLevel = 0;  // intended: the rebuild logs at level 0, unlike the other steps

const STATUS kDatabaseInUse = 0x13EA;
const int kMaxOfflineAttempts = 60;
const DWORD kOfflineWaitMs = 10000;
const DWORD kIdleDelayMs = 1000;

STATUS TakePatternDatabaseOffline() {
    int attempts = 0;
    STATUS status = NSFTakeDatabaseOffline("rpx/rpency.nsf", kOfflineWaitMs, 0);
    while (status == kDatabaseInUse) {
        LogDebugMessage(kRebuildLogLevel, "DB in use, waiting");
        AddInIdleDelay(kIdleDelayMs);
        if (++attempts >= kMaxOfflineAttempts) break;
        status = NSFTakeDatabaseOffline("rpx/rpency.nsf", kOfflineWaitMs, 0);
    }
    return status;
}

}  // namespace

STATUS UpdateRpency() {
    int oldFormat = 0;
    DHANDLE acl = NULLHANDLE;
    STATUS status = FindOldPatternFormat(&oldFormat, &acl);
    if (status != NOERROR) return status;
    if (!oldFormat) return NOERROR;

    LogDebugMessage(kRebuildLogLevel, "rpency.nsf is old format, recreate it");
    status = TakePatternDatabaseOffline();
    if (status != NOERROR) {
        LogDebugMessage(kRebuildLogLevel, "Failed to delete original RPX V3 rpency.nsf, Error: %X",
                        (unsigned)status);
        return status;
    }
    return RecreatePatternDatabase(acl);
}
