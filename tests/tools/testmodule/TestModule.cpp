// A task module for the rpxserver tests. Through the public Notes API only, it does what a
// server task does: writes a console line, sends a console command to its own server, opens
// a database (and leaves it open, for the host's handle report), and returns a status.
// notes.ini settings steer it: TestModuleCommand, TestModuleDatabase, TestModuleStatus.
// Built with TESTMODULE_WITHOUT_ENTRY it exports its work under another name, so that the
// host finds no MainEntryPoint.
#include <cstddef>

#include "global.h"
#include "addin.h"
#include "global.h"
#include "kfm.h"
#include "names.h"
#include "nsfdb.h"
#include "osenv.h"
#include "osmem.h"

namespace {

STATUS SendConsoleCommand(const char* command) {
    char server[MAXUSERNAME + 1] = {};
    STATUS status = SECKFMGetUserName(server);
    if (status != NOERROR) return status;
    char text[256] = {};
    for (size_t i = 0; command[i] && i + 1 < sizeof text; ++i) text[i] = command[i];
    DHANDLE response = NULLHANDLE;
    status = NSFRemoteConsole(server, text, &response);
    if (response != NULLHANDLE) OSMemFree(response);
    return status;
}

STATUS RunTestTask() {
    AddInLogMessageText(const_cast<char*>("Test module: started"), NOERROR);
    char setting[MAXPATH] = {};
    if (OSGetEnvironmentString("TestModuleCommand", setting, sizeof setting - 1)) {
        STATUS status = SendConsoleCommand(setting);
        if (status != NOERROR) {
            AddInLogMessageText(const_cast<char*>("Test module: the console command failed"), status);
            return status;
        }
    }
    if (OSGetEnvironmentString("TestModuleDatabase", setting, sizeof setting - 1)) {
        DBHANDLE db = NULLHANDLE;
        STATUS status = NSFDbOpen(setting, &db);  // left open on purpose
        if (status != NOERROR) return status;
    }
    return static_cast<STATUS>(OSGetEnvironmentLong("TestModuleStatus"));
}

}  // namespace

#ifndef TESTMODULE_WITHOUT_ENTRY
extern "C" __attribute__((visibility("default"))) STATUS LNPUBLIC MainEntryPoint(void) {
    return RunTestTask();
}
#else
extern "C" __attribute__((visibility("default"))) STATUS LNPUBLIC TestModuleEntry(void) {
    return RunTestTask();
}
#endif
