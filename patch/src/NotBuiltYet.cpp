// Placeholders for the steps of the configuration migration, the expression fix-up and the
// digital-asset removal that this build does not contain yet: each only reports that it is
// unavailable and fails. Each goes when its step is built.
#include "global.h"

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

STATUS UpgradeDLPDocumentFromNTFtoNSF(DBHANDLE, DBHANDLE) {
    LogDebugMessage(1, "UpgradeDLPDocumentFromNTFtoNSF is not available in this build.");
    return kNotAvailable;
}

void OutputObsoleteSet(const std::set<std::string>&) {
    LogDebugMessage(1, "OutputObsoleteSet is not available in this build.");
}

void OutputSet(const std::map<std::string, std::string>&) {
    LogDebugMessage(1, "OutputSet is not available in this build.");
}

STATUS RemoveObsoleteUNID(DBHANDLE) {
    LogDebugMessage(1, "RemoveObsoleteUNID is not available in this build.");
    return kNotAvailable;
}

STATUS ReplaceObsoleteUNID(DBHANDLE) {
    LogDebugMessage(1, "ReplaceObsoleteUNID is not available in this build.");
    return kNotAvailable;
}
