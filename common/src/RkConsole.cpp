// Server console commands: sent to the server this task runs on. Needs the server half of the
// platform (NSFRemoteConsole).
#include "RkCommonUtil.h"

#include "kfm.h"
#include "nsfdb.h"
#include "osmem.h"

unsigned int RkCommonUtil::RunConsoleCommandRemote(char* command) {
    if (command == nullptr) return static_cast<unsigned int>(-1);
    char serverName[MAXUSERNAME + 1] = "";
    STATUS status = SECKFMGetUserName(serverName);
    if (status != NOERROR) return status;
    DHANDLE response = NULLHANDLE;
    status = NSFRemoteConsole(serverName, command, &response);
    if (response != NULLHANDLE) OSMemFree(response);  // the reply is not read
    return status;
}
