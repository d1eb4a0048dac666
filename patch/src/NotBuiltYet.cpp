// Placeholders for the steps of the configuration migration, the expression fix-up and the
// digital-asset removal that this build does not contain yet: each only reports that it is
// unavailable and fails. Each goes when its step is built.
#include "ConfigMigration.h"
#include "PatchRPX.h"

namespace {
const STATUS kNotAvailable = 1;
}

STATUS UpdateExpresionDocID() {
    LogDebugMessage(1, "UpdateExpresionDocID is not available in this build.");
    return kNotAvailable;
}

STATUS RemoveDuplicatedUserDefinedDigitalAssert() {
    LogDebugMessage(1, "RemoveDuplicatedUserDefinedDigitalAssert is not available in this build.");
    return kNotAvailable;
}

STATUS ChangeConflictAction(DBHANDLE) {
    LogDebugMessage(1, "ChangeConflictAction is not available in this build.");
    return kNotAvailable;
}

STATUS CheckDefaultPolicies(DBHANDLE) {
    LogDebugMessage(1, "CheckDefaultPolicies is not available in this build.");
    return kNotAvailable;
}
