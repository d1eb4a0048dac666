// Internal interfaces of the stand-in server: the settings of server.json
// (clock, busy databases, injected faults, the simulated tasks), the clock,
// the offline state of databases and the console.
#ifndef EMU_SERVER_H
#define EMU_SERVER_H

#include <cstdint>
#include <string>
#include <vector>

#include "Emu.h"

namespace emu {

// Status of an initialisation refused because server.json is malformed.
constexpr STATUS ERR_SERVER_SETTINGS = ERR_IOERROR;
// Status of an initialisation refused because notes.ini is empty, not text in
// the native character set, or names no data directory.
constexpr STATUS ERR_NOTESINI_UNUSABLE = ERR_IOERROR;

// Status of NSFDbOpen on a database that was taken offline.
constexpr STATUS ERR_DB_OFFLINE = ERR_NSFOPEN;

// ---- server.json -------------------------------------------------------------

enum class ClockKind { Real, Virtual };

struct FaultRule {
	std::string call;      // API function name, compared exactly
	std::string pathKey;   // DatabaseKey of the database, empty for any database
	bool hasUnid = false;
	UNID unid{};
	STATUS status = NOERROR;
	long remaining = -1;   // calls still to fail; -1 = every call
	long after = 0;        // matching calls let through before the rule acts
	bool kill = false;     // "action": "kill": the process ends at the call, as under kill -9
};

struct BusyRule {
	std::string pathKey;
	long remaining = -1;   // take-offline attempts still to refuse; -1 = always
};

struct TaskSettings {
	bool running = true;
	std::vector<std::string> holdKeys;  // DatabaseKey of each database it keeps open
};

struct ServerSettings {
	ClockKind clock = ClockKind::Real;
	std::vector<BusyRule> busy;
	std::vector<FaultRule> faults;
	TaskSettings rpxreal;
};

// Reads <serverFolder>/server.json (absent: the defaults). Its paths are kept
// as the file gives them until ApplyServerSettings turns them into keys.
// A malformed file gives false and a message in error.
bool ReadServerFile(const std::string& serverFolder, ServerSettings& out, std::string& error);
// The same for the text of a server object; error names the key path.
bool ReadServerSettings(const std::string& jsonText, ServerSettings& out, std::string& error);
// Makes settings read by ReadServerFile current (after the notes.ini settings
// are, since paths resolve against the data directory) and resets every
// counter, the offline state and the tasks.
void ApplyServerSettings(ServerSettings settings);
ServerSettings& CurrentServer();

// The key under which a database is compared: its absolute file path
// (ResolvePath), ".nsf" added when the name has no extension, lower case.
std::string DatabaseKey(const std::string& notesOrFilePath);

// ---- Clock -----------------------------------------------------------------------

// Milliseconds since 1970 on the platform clock: the real time, plus every
// wait made so far under the virtual clock.
int64_t ClockMillis();
// A platform wait: sleeps for real, or advances the virtual clock at once.
// The caller must not hold the API lock for a real wait.
void PlatformWait(uint32_t millis);
bool VirtualClock();
// "MM/DD/YYYY HH:MM:SS" in local time on the platform clock.
std::string ConsoleTimeStamp();

// ---- Databases offline -----------------------------------------------------------

bool IsOffline(const std::string& filePath);
// Every database online again (a new server.json was applied).
void ResetOffline();
// A database created anew at this path is online.
void MarkOnline(const std::string& filePath);
// True while rpxreal runs and keeps this database open.
bool HeldByTask(const std::string& filePath);

// ---- Console ------------------------------------------------------------------------

// Appends one line (several for text with line breaks) to console.log and,
// with echo on, to standard output.
void ConsoleWrite(const std::string& text);
// Runs a console command: records "> command", runs it, writes its answer
// lines to the console and returns them joined by "\n".
std::string RunConsoleCommand(const std::string& command);

// Answer lines of one command, given as its words.
std::vector<std::string> RunCommandWords(const std::vector<std::string>& words);

// Folder of the notes.ini the platform was initialised from.
std::string ServerFolder();
// The folder OSGetExecutableDirectory reports.
std::string ProgramDirectory();
// Text of a status as OSLoadString gives it, NULL when the platform has none.
const char* StatusTextOf(STATUS code);

}  // namespace emu

#endif
