// server.json: the clock, busy databases, injected faults and the simulated
// tasks of the stand-in server, and the call guard that injects the faults.
#include <dlfcn.h>

#include <nlohmann/json.hpp>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>

#include "Server.h"

namespace emu {
namespace {

using Json = nlohmann::json;

ServerSettings& Current() {
	static ServerSettings settings;
	return settings;
}

bool ParseHexWord(const std::string& text, size_t at, DWORD& out) {
	out = 0;
	for (size_t i = at; i < at + 8; ++i) {
		int c = std::tolower(static_cast<unsigned char>(text[i]));
		int digit = std::isdigit(c) ? c - '0' : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
		if (digit < 0) return false;
		out = (out << 4) | static_cast<DWORD>(digit);
	}
	return true;
}

// The product's UNID text: File then Note, each high word first.
bool ParseUnid(const std::string& text, UNID& out) {
	if (text.size() != 32) return false;
	return ParseHexWord(text, 0, out.File.Innards[1]) && ParseHexWord(text, 8, out.File.Innards[0]) &&
	       ParseHexWord(text, 16, out.Note.Innards[1]) && ParseHexWord(text, 24, out.Note.Innards[0]);
}

// A function this library exports as part of the platform API (not an Emu*
// extension): the names a fault rule can name.
bool IsPlatformCall(const std::string& name) {
	if (name.empty() || name.compare(0, 3, "Emu") == 0) return false;
	Dl_info ours;
	if (!::dladdr(reinterpret_cast<void*>(&IsPlatformCall), &ours) || !ours.dli_fname) return false;
	void* library = ::dlopen(ours.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
	if (!library) return false;
	// The handle also finds the library's dependencies; only our own definitions count.
	void* symbol = ::dlsym(library, name.c_str());
	Dl_info found;
	bool own = symbol && ::dladdr(symbol, &found) && found.dli_fbase == ours.dli_fbase;
	::dlclose(library);
	return own;
}

// Reads the server object; the first problem found is kept in error as
// "key path: what is wrong and what is allowed".
class SettingsReader {
public:
	explicit SettingsReader(ServerSettings& out) : out_(out) {}

	bool Read(const Json& root) {
		if (!root.is_object()) return Fail("", "the settings must be a JSON object");
		if (!KnownKeys(root, "", {"clock", "busy", "faults", "tasks", "tempFolder"})) return false;
		if (root.contains("tempFolder") && !root["tempFolder"].is_boolean())
			return Fail("tempFolder", "true or false expected");
		return ReadClock(root) && ReadBusy(root) && ReadFaults(root) && ReadTasks(root);
	}
	const std::string& error() const { return error_; }

private:
	bool Fail(const std::string& where, const std::string& problem) {
		error_ = where.empty() ? problem : where + ": " + problem;
		return false;
	}

	bool KnownKeys(const Json& object, const std::string& where, std::initializer_list<const char*> allowed) {
		for (const auto& entry : object.items()) {
			bool known = false;
			std::string list;
			for (const char* key : allowed) {
				known = known || entry.key() == key;
				list += std::string(list.empty() ? "" : ", ") + key;
			}
			if (!known)
				return Fail(where.empty() ? entry.key() : where + "." + entry.key(), "unknown key (allowed: " + list + ")");
		}
		return true;
	}

	// A count: a positive number, or "always" (-1).
	static bool ParseCount(const Json& value, long& out) {
		if (value.is_string() && value.get<std::string>() == "always") {
			out = -1;
			return true;
		}
		if (!value.is_number_integer() || value.get<long>() < 1) return false;
		out = value.get<long>();
		return true;
	}

	bool ReadClock(const Json& root) {
		if (!root.contains("clock")) return true;
		const Json& clock = root["clock"];
		if (clock == "real") out_.clock = ClockKind::Real;
		else if (clock == "virtual") out_.clock = ClockKind::Virtual;
		else return Fail("clock", "\"real\" or \"virtual\" expected");
		return true;
	}

	bool ReadBusy(const Json& root) {
		if (!root.contains("busy")) return true;
		if (!root["busy"].is_object()) return Fail("busy", "an object of database paths expected");
		for (const auto& entry : root["busy"].items()) {
			BusyRule rule;
			rule.pathKey = entry.key();
			if (!ParseCount(entry.value(), rule.remaining))
				return Fail("busy[\"" + entry.key() + "\"]", "a positive whole number or \"always\" expected");
			out_.busy.push_back(rule);
		}
		return true;
	}

	bool ReadFault(const Json& item, const std::string& where, FaultRule& rule) {
		if (!item.is_object()) return Fail(where, "an object expected");
		if (!KnownKeys(item, where, {"call", "action", "status", "path", "unid", "count", "after"})) return false;
		if (!item.contains("call") || !item["call"].is_string())
			return Fail(where + ".call", "the name of a platform API function (or \"*\") expected");
		rule.call = item["call"].get<std::string>();
		if (rule.call != "*" && !IsPlatformCall(rule.call))
			return Fail(where + ".call", "\"" + rule.call + "\" is not a function of the platform API");
		if (item.contains("action")) {
			if (item["action"] == "kill") rule.kill = true;
			else if (item["action"] != "fail") return Fail(where + ".action", "\"fail\" or \"kill\" expected");
		}
		bool statusNeeded = !rule.kill || item.contains("status");  // a kill returns no status
		if (statusNeeded && (!item.contains("status") || !item["status"].is_number_integer() ||
		                     item["status"].get<long>() <= 0 || item["status"].get<long>() > 0xFFFF))
			return Fail(where + ".status", "a status code (1..65535) expected");
		if (statusNeeded) rule.status = static_cast<STATUS>(item["status"].get<long>());
		if (item.contains("path")) {
			if (!item["path"].is_string() || item["path"].get<std::string>().empty())
				return Fail(where + ".path", "a database path expected");
			rule.pathKey = item["path"].get<std::string>();
		}
		if (item.contains("unid")) {
			if (!item["unid"].is_string() || !ParseUnid(item["unid"].get<std::string>(), rule.unid))
				return Fail(where + ".unid", "32 hexadecimal digits expected");
			rule.hasUnid = true;
		}
		if (item.contains("count") && !ParseCount(item["count"], rule.remaining))
			return Fail(where + ".count", "a positive whole number or \"always\" expected");
		if (item.contains("after")) {
			if (!item["after"].is_number_integer() || item["after"].get<long>() < 0)
				return Fail(where + ".after", "a number of calls (0 or more) expected");
			rule.after = item["after"].get<long>();
		}
		return true;
	}

	bool ReadFaults(const Json& root) {
		if (!root.contains("faults")) return true;
		if (!root["faults"].is_array()) return Fail("faults", "an array of faults expected");
		for (size_t i = 0; i < root["faults"].size(); ++i) {
			FaultRule rule;
			if (!ReadFault(root["faults"][i], "faults[" + std::to_string(i) + "]", rule)) return false;
			out_.faults.push_back(rule);
		}
		return true;
	}

	bool ReadTasks(const Json& root) {
		if (!root.contains("tasks")) return true;
		const Json& tasks = root["tasks"];
		if (!tasks.is_object()) return Fail("tasks", "an object of tasks expected");
		if (!KnownKeys(tasks, "tasks", {"rpxreal"})) return false;
		if (!tasks.contains("rpxreal")) return true;
		const Json& task = tasks["rpxreal"];
		if (!task.is_object()) return Fail("tasks.rpxreal", "an object expected");
		if (!KnownKeys(task, "tasks.rpxreal", {"running", "holds"})) return false;
		if (task.contains("running")) {
			if (!task["running"].is_boolean()) return Fail("tasks.rpxreal.running", "true or false expected");
			out_.rpxreal.running = task["running"].get<bool>();
		}
		if (task.contains("holds")) {
			if (!task["holds"].is_array()) return Fail("tasks.rpxreal.holds", "an array of database paths expected");
			for (const Json& path : task["holds"]) {
				if (!path.is_string()) return Fail("tasks.rpxreal.holds", "an array of database paths expected");
				out_.rpxreal.holdKeys.push_back(path.get<std::string>());
			}
		}
		return true;
	}

	ServerSettings& out_;
	std::string error_;
};

bool Matches(const FaultRule& rule, const char* call, const std::string& dbPath, const UNID* unid) {
	if (rule.remaining == 0 || (rule.call != "*" && rule.call != call)) return false;
	if (!rule.pathKey.empty() && (dbPath.empty() || DatabaseKey(dbPath) != rule.pathKey)) return false;
	if (rule.hasUnid && (!unid || std::memcmp(unid, &rule.unid, sizeof(UNID)) != 0)) return false;
	return true;
}

// Ends the process at once, as a server operator's kill -9 would: no handler, no flush.
[[noreturn]] void KillProcess(const char* call) {
	std::string line = "libnotes: killed at " + std::string(call) + " by a server.json fault\n";
	ssize_t ignored = ::write(STDERR_FILENO, line.data(), line.size());
	(void)ignored;
	::kill(::getpid(), SIGKILL);
	::_exit(137);
}

}  // namespace

std::string DatabaseKey(const std::string& notesOrFilePath) {
	std::string path = ResolvePath(notesOrFilePath);
	if (!HasExtension(path)) path += ".nsf";
	std::transform(path.begin(), path.end(), path.begin(),
	               [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
	return path;
}

bool ReadServerSettings(const std::string& jsonText, ServerSettings& out, std::string& error) {
	out = ServerSettings();
	Json root = Json::parse(jsonText, nullptr, false);
	if (root.is_discarded()) {
		error = "not valid JSON";
		return false;
	}
	SettingsReader reader(out);
	if (reader.Read(root)) return true;
	error = reader.error();
	return false;
}

bool ReadServerFile(const std::string& serverFolder, ServerSettings& out, std::string& error) {
	out = ServerSettings();
	std::string path = serverFolder + "/server.json";
	std::ifstream in(path, std::ios::binary);
	if (!in) return true;
	std::ostringstream text;
	text << in.rdbuf();
	if (ReadServerSettings(text.str(), out, error)) return true;
	error = path + ": " + error;
	return false;
}

}  // namespace emu

using namespace emu;

STATUS LNPUBLIC EmuCheckServerSettings(const char far* jsonText, char far* retError, WORD errorSize) {
	ServerSettings settings;
	std::string error;
	bool ok = ReadServerSettings(jsonText ? jsonText : "", settings, error);
	if (retError && errorSize > 0) {
		size_t n = std::min<size_t>(error.size(), errorSize - 1u);
		std::memcpy(retError, error.data(), n);
		retError[n] = '\0';
	}
	return ok ? NOERROR : ERR_SERVER_SETTINGS;
}

namespace emu {

void ApplyServerSettings(ServerSettings settings) {
	for (BusyRule& rule : settings.busy) rule.pathKey = DatabaseKey(rule.pathKey);
	for (FaultRule& rule : settings.faults)
		if (!rule.pathKey.empty()) rule.pathKey = DatabaseKey(rule.pathKey);
	for (std::string& key : settings.rpxreal.holdKeys) key = DatabaseKey(key);
	Current() = std::move(settings);
	ResetOffline();
}

ServerSettings& CurrentServer() {
	return Current();
}

bool HeldByTask(const std::string& filePath) {
	const TaskSettings& task = Current().rpxreal;
	if (!task.running) return false;
	std::string key = DatabaseKey(filePath);
	return std::find(task.holdKeys.begin(), task.holdKeys.end(), key) != task.holdKeys.end();
}

// The first fault that matches (past its "after" calls) fails the call and uses up one of its
// count, or kills the process.
STATUS CheckCall(const char* call, const std::string& dbPath, const UNID* unid) {
	for (FaultRule& rule : Current().faults) {
		if (!Matches(rule, call, dbPath, unid)) continue;
		if (rule.after > 0) {
			--rule.after;
			continue;
		}
		if (rule.kill) KillProcess(call);
		if (rule.remaining > 0) --rule.remaining;
		return rule.status;
	}
	return NOERROR;
}

}  // namespace emu
