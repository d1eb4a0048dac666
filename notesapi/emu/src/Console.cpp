// The server console: console.log, add-in messages and idle waits, remote
// console commands to the own server, and program starts (OSLoadProgram).
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Server.h"

namespace emu {
namespace {

// Longest message AddInLogMessageText formats; longer text is cut.
constexpr size_t kMaxMessage = 4096;
// Longest command text read from a caller.
constexpr size_t kMaxCommand = 4096;

std::atomic<bool> gEcho{false};

void AppendLine(const std::string& line) {
	std::string path = ServerFolder() + "/console.log";
	if (FILE* log = std::fopen(path.c_str(), "a")) {
		std::fprintf(log, "%s\n", line.c_str());
		std::fclose(log);
	}
	if (gEcho) {
		std::fprintf(stdout, "%s\n", line.c_str());
		std::fflush(stdout);
	}
}

std::vector<std::string> SplitWords(const std::string& text) {
	std::vector<std::string> words;
	size_t i = 0;
	while (i < text.size()) {
		while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
		size_t start = i;
		while (i < text.size() && !std::isspace(static_cast<unsigned char>(text[i]))) ++i;
		if (i > start) words.push_back(text.substr(start, i - start));
	}
	return words;
}

// "CN=Alpha/O=Acme" and "Alpha/Acme" name the same server.
std::string Abbreviated(const std::string& name) {
	std::string out;
	size_t start = 0;
	while (start <= name.size()) {
		size_t slash = name.find('/', start);
		std::string part = name.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
		size_t eq = part.find('=');
		if (eq != std::string::npos && eq <= 2) part = part.substr(eq + 1);
		if (!out.empty()) out += "/";
		out += part;
		if (slash == std::string::npos) break;
		start = slash + 1;
	}
	return AsciiUpper(out);
}

bool IsOwnServer(const char* name) {
	if (!name || !*name) return true;
	return Abbreviated(std::string(name, strnlen(name, MAXUSERNAME))) == Abbreviated(ServerName());
}

// The command of "-c \"COMMAND\"" (or -c WORD) in a program's arguments.
bool CommandArgument(const std::string& arguments, std::string& command) {
	for (size_t at = arguments.find("-c"); at != std::string::npos; at = arguments.find("-c", at + 2)) {
		bool startsWord = at == 0 || std::isspace(static_cast<unsigned char>(arguments[at - 1]));
		size_t next = at + 2;
		if (!startsWord || (next < arguments.size() && !std::isspace(static_cast<unsigned char>(arguments[next]))))
			continue;
		while (next < arguments.size() && std::isspace(static_cast<unsigned char>(arguments[next]))) ++next;
		if (next >= arguments.size()) return false;
		if (arguments[next] == '"') {
			size_t close = arguments.find('"', next + 1);
			if (close == std::string::npos) return false;
			command = arguments.substr(next + 1, close - next - 1);
		} else {
			size_t end = next;
			while (end < arguments.size() && !std::isspace(static_cast<unsigned char>(arguments[end]))) ++end;
			command = arguments.substr(next, end - next);
		}
		return true;
	}
	return false;
}

std::string Bounded(const char* text, size_t limit) {
	return text ? std::string(text, strnlen(text, limit)) : std::string();
}

}  // namespace

void ConsoleWrite(const std::string& text) {
	std::string stamp = ConsoleTimeStamp();
	size_t start = 0;
	while (start < text.size()) {
		size_t nl = text.find('\n', start);
		std::string line = text.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
		if (!line.empty() && line.back() == '\r') line.pop_back();
		AppendLine(stamp + "  " + line);
		if (nl == std::string::npos) break;
		start = nl + 1;
	}
	if (text.empty()) AppendLine(stamp + "  ");
}

std::string RunConsoleCommand(const std::string& command) {
	ConsoleWrite("> " + command);
	std::string answer;
	for (const std::string& line : RunCommandWords(SplitWords(command))) {
		ConsoleWrite(line);
		if (!answer.empty()) answer += "\n";
		answer += line;
	}
	return answer;
}

}  // namespace emu

using namespace emu;

void LNVARARGS AddInLogMessageText(char far* String, STATUS AdditionalErrorCode, ...) {
	ApiLock lock(ApiMutex());
	if (CheckCall("AddInLogMessageText") || !String) return;
	char text[kMaxMessage];
	va_list args;
	va_start(args, AdditionalErrorCode);
	std::vsnprintf(text, sizeof text, String, args);
	va_end(args);
	std::string line = text;
	if (AdditionalErrorCode != NOERROR) {
		const char* statusText = StatusTextOf(ERR(AdditionalErrorCode));
		char unknown[48];
		std::snprintf(unknown, sizeof unknown, "Unknown status 0x%04X", ERR(AdditionalErrorCode));
		line += std::string(": ") + (statusText ? statusText : unknown);
	}
	ConsoleWrite(line);
}

BOOL LNPUBLIC AddInIdleDelay(DWORD Delay) {
	{
		ApiLock lock(ApiMutex());
		if (CheckCall("AddInIdleDelay")) return FALSE;
		if (VirtualClock()) {
			PlatformWait(Delay);
			return FALSE;
		}
	}
	// A real wait: other threads may use the platform meanwhile.
	std::this_thread::sleep_for(std::chrono::milliseconds(Delay));
	return FALSE;
}

STATUS LNPUBLIC NSFRemoteConsole(char far* ServerName, char far* ConsoleCommand, DHANDLE far* hResponseText) {
	ApiLock lock(ApiMutex());
	if (hResponseText) *hResponseText = NULLHANDLE;
	if (STATUS s = CheckCall("NSFRemoteConsole")) return s;
	if (!IsOwnServer(ServerName)) return ERR_SERVER_NOT_RESPONDING;
	std::string answer = RunConsoleCommand(Bounded(ConsoleCommand, kMaxCommand));
	if (hResponseText) {
		Bytes bytes(answer.begin(), answer.end());
		bytes.push_back('\0');
		*hResponseText = NewMemory(std::move(bytes), "NSFRemoteConsole");
	}
	return NOERROR;
}

STATUS LNPUBLIC OSLoadProgram(char far* filename, char far* /*WorkingDir*/, char far* Arguments, WORD /*Flags*/) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("OSLoadProgram")) return s;
	std::string program = Bounded(filename, MAXPATH);
	if (program.empty()) return ERR_OS_EXECERRORNF;
	std::string arguments = Bounded(Arguments, kMaxCommand);
	ConsoleWrite("Program started: " + program + (arguments.empty() ? "" : " " + arguments));
	std::string command;
	bool isServer = ResolveApiPath(program.c_str()) == ResolvePath(ProgramDirectory() + "/server");
	if (isServer && CommandArgument(arguments, command)) RunConsoleCommand(command);
	return NOERROR;
}

void LNPUBLIC EmuConsoleEcho(BOOL echo) {
	gEcho = echo != FALSE;
}

STATUS LNPUBLIC EmuConsoleCommand(const char far* command) {
	ApiLock lock(ApiMutex());
	if (!command) return ERR_UNKNOWN;
	RunConsoleCommand(Bounded(command, kMaxCommand));
	return NOERROR;
}
