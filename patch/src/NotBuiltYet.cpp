// Placeholders for the configuration migration, the expression fix-up and the digital-asset
// removal, which this build does not contain yet. This file is replaced when the migration is
// built: each function only reports that it is unavailable and fails.
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

STATUS UpdateRPXConfigue() {
    LogDebugMessage(1, "UpdateRPXConfigue is not available in this build.");
    return kNotAvailable;
}
