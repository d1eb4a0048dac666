// RunConsoleCommand: a console command in the native character set, sent to the server, or, when
// the server does not take it, run by starting the server program with -c. Needs the server half
// of the platform and the common debug log.
#include "RkCommonUtil.h"

#include <cstring>

#include "osfile.h"
#include "osmisc.h"

#include "RkFormat.h"

namespace {

constexpr WORD kCommandSize = 2048;
constexpr WORD kShortSize = 256;
const unsigned int kProgramStartPauseMs = 1000;

// Translates zero-ended text into out (size bytes) and zero-ends it.
void Translate(WORD mode, const char* text, char* out, WORD size) {
    out[0] = '\0';
    if (text[0] == '\0') return;
    WORD length = OSTranslate(mode, text, MAXWORD, out, size - 1);
    out[length < size ? length : size - 1] = '\0';
}

unsigned int StartServerProgram(const char* command) {
    char lmbcsIniPath[MAXPATH] = "";
    OSGetIniFileName(lmbcsIniPath);
    char lmbcsDirectory[MAXPATH] = "";
    OSGetExecutableDirectory(lmbcsDirectory);
    char iniPath[kShortSize];
    char directory[kShortSize];
    Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcsIniPath, iniPath, sizeof iniPath);
    Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcsDirectory, directory, sizeof directory);

    // Each text is cut to 255 bytes before it is translated.
    char program[kShortSize];
    char arguments[kShortSize];
    rk_snprintf(program, sizeof program, "%s/server", directory);
    rk_snprintf(arguments, sizeof arguments, "=%s -c \"%s\" ", iniPath, command);

    char lmbcsProgram[kCommandSize];
    char lmbcsWorkingDirectory[kShortSize];
    char lmbcsArguments[kCommandSize];
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, program, lmbcsProgram, sizeof lmbcsProgram);
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, directory, lmbcsWorkingDirectory, sizeof lmbcsWorkingDirectory);
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, arguments, lmbcsArguments, sizeof lmbcsArguments);
    STATUS status = OSLoadProgram(lmbcsProgram, lmbcsWorkingDirectory, lmbcsArguments, 0);
    RkCommonUtil::LogDebugMessage("RkCommon", 544, 3, "OSLoadProgram (%s) (%s) (%s)", program, directory,
                                  arguments);
    RkCommonUtil::RkSleep(kProgramStartPauseMs);
    return status;
}

}  // namespace

unsigned int RkCommonUtil::RunConsoleCommand(char* command) {
    if (command == nullptr) return static_cast<unsigned int>(-1);
    char lmbcsCommand[kCommandSize];
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, command, lmbcsCommand, sizeof lmbcsCommand);
    if (RunConsoleCommandRemote(lmbcsCommand) == NOERROR) return NOERROR;
    LogDebugMessage("RkCommon", 519, 0, "runconsole command failed(%s)", lmbcsCommand);
    return StartServerProgram(command);
}
