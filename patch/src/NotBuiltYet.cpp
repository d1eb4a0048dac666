// Placeholders for the steps of the configuration migration and the expression fix-up that this
// build does not contain yet: each only reports that it is unavailable and fails. Each goes when
// its step is built.
#include "ConfigMigration.h"
#include "PatchRPX.h"

namespace {
const STATUS kNotAvailable = 1;
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
