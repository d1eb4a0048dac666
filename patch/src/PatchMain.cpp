// MainEntryPoint: the program entry of the patch task. It reaches the driver and so the server
// half of the platform, which is why it lives apart from the settings.
#include "PatchRPX.h"

extern "C" STATUS LNPUBLIC MainEntryPoint(void) {
    PatchSetting setting;
    if (LoadPatchSettings(setting)) {
        if (GetRunningRPXVer(setting) == 0) {
            UpdateDatabase(setting);  // its result changes nothing for the server
        } else {
            LogDebugMessage(1, "Error, Cannot get the running RPX version");
        }
    }
    return NOERROR;
}
