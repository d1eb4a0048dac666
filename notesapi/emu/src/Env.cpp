// Start-up, notes.ini settings, the data and program directories and the
// server's name.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Emu.h"
#include "emu/notesemu.h"
#include "Server.h"

namespace emu {
namespace {

struct Settings {
	std::string iniPath;
	// Fixed at initialisation, as on a server: later changes of "Directory" do not move it.
	std::string dataDirectory;
	// In file order; names compare case-insensitively.
	std::vector<std::pair<std::string, std::string>> values;
};

Settings& TheSettings() {
	static Settings settings;
	return settings;
}

void Put(Settings& settings, std::string_view name, std::string_view value) {
	for (auto& entry : settings.values)
		if (NameEquals(entry.first, name)) {
			entry.second.assign(value);
			return;
		}
	settings.values.emplace_back(std::string(name), std::string(value));
}

std::string Trim(const std::string& text) {
	size_t begin = text.find_first_not_of(" \t\r\n");
	if (begin == std::string::npos) return std::string();
	size_t end = text.find_last_not_of(" \t\r\n");
	return text.substr(begin, end - begin + 1);
}

// notes.ini: an optional "[Notes]" line, then Name=Value lines in the native
// character set. Lines without '=' and other section headers are ignored; a
// later value of the same name wins, as when the server rewrites the file.
// Text that cannot be such a file is refused with the reason in error.
bool ParseIni(const std::string& content, Settings& out, std::string& error) {
	std::string text = content;
	if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
	if (text.compare(0, 2, "\xFF\xFE") == 0 || text.compare(0, 2, "\xFE\xFF") == 0) {
		error = "the file is UTF-16 text; notes.ini must be in the native character set";
		return false;
	}
	if (text.find('\0') != std::string::npos) {
		error = "the file holds NUL bytes (UTF-16 text?); notes.ini must be in the native character set";
		return false;
	}
	if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
		error = "the file is empty";
		return false;
	}
	out.values.clear();
	std::istringstream in(text);
	std::string line;
	while (std::getline(in, line)) {
		std::string entry = Trim(line);
		if (entry.empty() || entry[0] == '[' || entry[0] == ';') continue;
		size_t eq = entry.find('=');
		if (eq == std::string::npos || eq == 0) continue;
		Put(out, Trim(entry.substr(0, eq)), entry.substr(eq + 1));
	}
	return true;
}

std::string FolderOf(const std::string& path) {
	size_t slash = path.find_last_of('/');
	if (slash == std::string::npos) return ".";
	return slash == 0 ? "/" : path.substr(0, slash);
}

std::string AbsoluteFromCwd(const std::string& path) {
	if (!path.empty() && path[0] == '/') return path;
	char cwd[4096];
	if (!::getcwd(cwd, sizeof cwd)) return path;
	return std::string(cwd) + "/" + path;
}

// Removes ".", ".." and repeated separators; keeps a leading '/'.
std::string Normalise(const std::string& path) {
	std::vector<std::string> parts;
	size_t i = 0;
	while (i <= path.size()) {
		size_t j = path.find('/', i);
		if (j == std::string::npos) j = path.size();
		std::string part = path.substr(i, j - i);
		if (part == "..") {
			if (!parts.empty()) parts.pop_back();
		} else if (!part.empty() && part != ".") {
			parts.push_back(part);
		}
		i = j + 1;
	}
	std::string out;
	for (const std::string& part : parts) out += "/" + part;
	return out.empty() ? "/" : out;
}

// Copies text into a caller's buffer of capacity+1 bytes, always terminated.
WORD CopyOut(const std::string& text, char* out, size_t capacity) {
	size_t n = std::min(text.size(), capacity);
	std::memcpy(out, text.data(), n);
	out[n] = '\0';
	return static_cast<WORD>(n);
}

// The API hands out LMBCS; a character that does not fit whole is left out.
WORD CopyOutLmbcs(const std::string& native, char* out, size_t capacity) {
	std::string lmbcs = LmbcsFromNative(native);
	size_t n = 0;
	while (n < lmbcs.size()) {
		size_t size = LmbcsCharLength(reinterpret_cast<const BYTE*>(lmbcs.data()) + n, lmbcs.size() - n);
		if (n + size > capacity) break;
		n += size;
	}
	return CopyOut(lmbcs.substr(0, n), out, capacity);
}

}  // namespace

bool GetSetting(std::string_view name, std::string& value) {
	for (const auto& entry : TheSettings().values)
		if (NameEquals(entry.first, name)) {
			value = entry.second;
			return true;
		}
	return false;
}

void SetSetting(std::string_view name, std::string_view value) {
	Put(TheSettings(), name, value);
}

std::string DataDirectory() {
	return TheSettings().dataDirectory;
}

std::string ServerName() {
	std::string name;
	GetSetting("ServerName", name);
	return name;
}

std::string ServerFolder() {
	const std::string& ini = TheSettings().iniPath;
	return ini.empty() ? DataDirectory() : FolderOf(ini);
}

std::string ProgramDirectory() {
	std::string program;
	if (GetSetting("NotesProgram", program) && !program.empty()) return program;
	return ServerFolder();
}

std::string ResolveApiPath(const char* lmbcsPath) {
	return ResolvePath(NativeFromLmbcs(lmbcsPath ? lmbcsPath : ""));
}

std::string ResolvePath(const std::string& notesPath) {
	std::string path = notesPath;
	std::replace(path.begin(), path.end(), '\\', '/');
	if (path.empty() || path[0] != '/') path = DataDirectory() + "/" + path;
	return Normalise(path);
}

}  // namespace emu

using namespace emu;

// ---- Start-up ------------------------------------------------------------------

namespace {

bool ReadFile(const std::string& path, std::string& content) {
	std::ifstream in(path, std::ios::binary);
	if (!in) return false;
	std::ostringstream text;
	text << in.rdbuf();
	content = text.str();
	return !in.bad();
}

// The data directory that notes.ini names; there is no default folder.
bool ReadDataDirectory(Settings& settings, std::string& error) {
	std::string dir;
	for (const auto& entry : settings.values)
		if (NameEquals(entry.first, "Directory")) dir = Trim(entry.second);
	if (dir.empty()) {
		error = "no Directory setting (the data directory) is given";
		return false;
	}
	settings.dataDirectory = Normalise(AbsoluteFromCwd(dir));
	return true;
}

// Nothing changes unless both notes.ini and server.json (next to it) are good.
STATUS InitFromIni(const std::string& iniPath) {
	Settings settings;
	std::string content, error;
	if (!ReadFile(iniPath, content)) return ERR_NO_NOTESINI;
	settings.iniPath = Normalise(AbsoluteFromCwd(iniPath));
	if (!ParseIni(content, settings, error) || !ReadDataDirectory(settings, error)) {
		std::fprintf(stderr, "Notes initialisation failed: %s: %s\n", settings.iniPath.c_str(), error.c_str());
		return ERR_NOTESINI_UNUSABLE;
	}
	ServerSettings server;
	if (!ReadServerFile(FolderOf(settings.iniPath), server, error)) {
		std::fprintf(stderr, "Notes initialisation failed: %s\n", error.c_str());
		return ERR_SERVER_SETTINGS;
	}
	TheSettings() = std::move(settings);
	ApplyServerSettings(std::move(server));
	return NOERROR;
}

}  // namespace

STATUS LNPUBLIC NotesInitExtended(int argc, char far* far* argv) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("NotesInitExtended")) return s;
	for (int i = 1; argv && i < argc; ++i)
		if (argv[i] && argv[i][0] == '=' && argv[i][1] != '\0') return InitFromIni(argv[i] + 1);
	const char* fromEnv = std::getenv("NOTES_INI");
	if (fromEnv && *fromEnv) return InitFromIni(fromEnv);
	return ERR_NO_NOTESINI;
}

STATUS LNPUBLIC NotesInitIni(char far* pConfigFileName) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("NotesInitIni")) return s;
	if (!pConfigFileName || !*pConfigFileName) return ERR_NO_NOTESINI;
	return InitFromIni(pConfigFileName);
}

STATUS LNPUBLIC NotesInit(void) {
	char* argv[] = {nullptr};
	return NotesInitExtended(0, argv);
}

void LNPUBLIC NotesTerm(void) {
	ApiLock lock(ApiMutex());
	CheckCall("NotesTerm");
	ReleaseAllHandles();
}

STATUS LNPUBLIC NotesInitThread(void) {
	ApiLock lock(ApiMutex());
	return CheckCall("NotesInitThread");
}

void LNPUBLIC NotesTermThread(void) {
	ApiLock lock(ApiMutex());
	CheckCall("NotesTermThread");
}

// ---- Settings ------------------------------------------------------------------

BOOL LNPUBLIC OSGetEnvironmentString(const char far* VariableName, char far* retValueBuffer,
                                     WORD BufferLength) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSGetEnvironmentString") || !VariableName) return FALSE;
	std::string value;
	bool found = GetSetting(VariableName, value);
	if (retValueBuffer) CopyOutLmbcs(found ? value : std::string(), retValueBuffer, BufferLength);
	return found ? TRUE : FALSE;
}

long LNPUBLIC OSGetEnvironmentLong(const char far* VariableName) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSGetEnvironmentLong") || !VariableName) return 0;
	std::string value;
	if (!GetSetting(VariableName, value)) return 0;
	return std::strtol(value.c_str(), nullptr, 10);
}

void LNPUBLIC OSSetEnvironmentVariable(const char far* VariableName, const char far* Value) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSSetEnvironmentVariable") || !VariableName || !*VariableName) return;
	SetSetting(VariableName, NativeFromLmbcs(Value ? Value : ""));
}

void LNPUBLIC OSSetEnvironmentInt(const char far* VariableName, int Value) {
	OSSetEnvironmentVariable(VariableName, std::to_string(Value).c_str());
}

// ---- Directories and names ---------------------------------------------------------

WORD LNPUBLIC OSGetDataDirectory(char far* retPathName) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSGetDataDirectory") || !retPathName) return 0;
	return CopyOutLmbcs(DataDirectory(), retPathName, MAXPATH - 1);
}

void LNPUBLIC OSGetExecutableDirectory(char* retPathName) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSGetExecutableDirectory") || !retPathName) return;
	CopyOutLmbcs(ProgramDirectory(), retPathName, MAXPATH - 1);
}

WORD LNPUBLIC OSGetIniFileName(char far* retPathName) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSGetIniFileName") || !retPathName) return 0;
	return CopyOutLmbcs(TheSettings().iniPath, retPathName, MAXPATH - 1);
}

STATUS LNPUBLIC SECKFMGetUserName(char far* retUserName) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("SECKFMGetUserName")) return s;
	if (!retUserName) return ERR_UNKNOWN;
	CopyOutLmbcs(ServerName(), retUserName, MAXUSERNAME - 1);
	return NOERROR;
}

// ---- Network path names ----------------------------------------------------------
// "port!!server!!file"; without a port "server!!file", without a server the file alone.

STATUS LNPUBLIC OSPathNetConstruct(const char far* PortName, const char far* ServerName,
                                   const char far* FileName, char far* retPathName) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("OSPathNetConstruct")) return s;
	if (!retPathName || !FileName) return ERR_INV_FILE_NAME;
	std::string path;
	if (PortName && *PortName) path += std::string(PortName) + "!!";
	if (ServerName && *ServerName) path += std::string(ServerName) + "!!";
	path += FileName;
	if (path.size() > MAXPATH - 1) return ERR_INV_FILE_NAME;
	CopyOut(path, retPathName, MAXPATH - 1);
	return NOERROR;
}

STATUS LNPUBLIC OSPathNetParse(const char far* PathName, char far* retPortName, char far* retServerName,
                               char far* retFileName) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("OSPathNetParse")) return s;
	if (!PathName) return ERR_INV_FILE_NAME;
	std::vector<std::string> parts;
	std::string path(PathName, strnlen(PathName, MAXPATH - 1));
	for (size_t start = 0;;) {
		size_t sep = path.find("!!", start);
		parts.push_back(path.substr(start, sep == std::string::npos ? std::string::npos : sep - start));
		if (sep == std::string::npos) break;
		start = sep + 2;
	}
	if (parts.size() > 3) return ERR_INV_FILE_NAME;
	std::string port = parts.size() == 3 ? parts[0] : std::string();
	std::string server = parts.size() >= 2 ? parts[parts.size() - 2] : std::string();
	if (retPortName) CopyOut(port, retPortName, MAXPATH - 1);
	if (retServerName) CopyOut(server, retServerName, MAXUSERNAME - 1);
	if (retFileName) CopyOut(parts.back(), retFileName, MAXPATH - 1);
	return NOERROR;
}
