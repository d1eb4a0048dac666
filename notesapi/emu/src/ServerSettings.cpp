// server.json: the clock, busy databases, injected faults and the simulated
// tasks of the stand-in server, and the call guard that injects the faults.
#include <nlohmann/json.hpp>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
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

// A count: a positive number, or "always" (-1).
bool ParseCount(const Json& value, long& out) {
	if (value.is_string() && value.get<std::string>() == "always") {
		out = -1;
		return true;
	}
	if (!value.is_number_integer() || value.get<long>() < 0) return false;
	out = value.get<long>();
	return true;
}

bool ReadClock(const Json& root, ServerSettings& out, std::string& error) {
	if (!root.contains("clock")) return true;
	const Json& clock = root["clock"];
	if (clock == "real") out.clock = ClockKind::Real;
	else if (clock == "virtual") out.clock = ClockKind::Virtual;
	else {
		error = "\"clock\" must be \"real\" or \"virtual\"";
		return false;
	}
	return true;
}

bool ReadBusy(const Json& root, ServerSettings& out, std::string& error) {
	if (!root.contains("busy")) return true;
	if (!root["busy"].is_object()) {
		error = "\"busy\" must be an object of database paths";
		return false;
	}
	for (const auto& entry : root["busy"].items()) {
		BusyRule rule;
		rule.pathKey = entry.key();
		if (!ParseCount(entry.value(), rule.remaining)) {
			error = "busy \"" + entry.key() + "\": a count or \"always\" expected";
			return false;
		}
		out.busy.push_back(rule);
	}
	return true;
}

bool ReadFaultAction(const Json& item, FaultRule& rule, std::string& error) {
	if (!item.contains("action")) return true;
	if (item["action"] == "kill") {
		rule.kill = true;
		return true;
	}
	if (item["action"] == "fail") return true;
	error = "fault of " + rule.call + ": \"action\" must be \"fail\" or \"kill\"";
	return false;
}

bool ReadFaultLimits(const Json& item, FaultRule& rule, std::string& error) {
	if (item.contains("count") && (!ParseCount(item["count"], rule.remaining) || rule.remaining == 0)) {
		error = "fault of " + rule.call + ": \"count\" must be a positive number or \"always\"";
		return false;
	}
	if (item.contains("after") && (!item["after"].is_number_integer() || item["after"].get<long>() < 0)) {
		error = "fault of " + rule.call + ": \"after\" must be a number of calls (0 or more)";
		return false;
	}
	rule.after = item.value("after", 0L);
	return true;
}

bool ReadFault(const Json& item, FaultRule& rule, std::string& error) {
	if (!item.is_object() || !item.contains("call") || !item["call"].is_string() || item["call"] == "") {
		error = "a fault needs \"call\", the name of an API function";
		return false;
	}
	rule.call = item["call"].get<std::string>();
	if (!ReadFaultAction(item, rule, error)) return false;
	bool statusNeeded = !rule.kill || item.contains("status");  // a kill returns no status
	if (statusNeeded && (!item.contains("status") || !item["status"].is_number_integer() ||
	                     item["status"].get<long>() <= 0 || item["status"].get<long>() > 0xFFFF)) {
		error = "fault of " + rule.call + ": \"status\" must be a status code (1..65535)";
		return false;
	}
	if (statusNeeded) rule.status = static_cast<STATUS>(item["status"].get<long>());
	if (item.contains("path")) {
		if (!item["path"].is_string()) {
			error = "fault of " + rule.call + ": \"path\" must be text";
			return false;
		}
		rule.pathKey = item["path"].get<std::string>();
	}
	if (item.contains("unid")) {
		if (!item["unid"].is_string() || !ParseUnid(item["unid"].get<std::string>(), rule.unid)) {
			error = "fault of " + rule.call + ": \"unid\" must be 32 hexadecimal digits";
			return false;
		}
		rule.hasUnid = true;
	}
	return ReadFaultLimits(item, rule, error);
}

bool ReadFaults(const Json& root, ServerSettings& out, std::string& error) {
	if (!root.contains("faults")) return true;
	if (!root["faults"].is_array()) {
		error = "\"faults\" must be an array";
		return false;
	}
	for (const Json& item : root["faults"]) {
		FaultRule rule;
		if (!ReadFault(item, rule, error)) return false;
		out.faults.push_back(rule);
	}
	return true;
}

bool ReadTasks(const Json& root, ServerSettings& out, std::string& error) {
	if (!root.contains("tasks")) return true;
	const Json& tasks = root["tasks"];
	if (!tasks.is_object()) {
		error = "\"tasks\" must be an object";
		return false;
	}
	for (const auto& entry : tasks.items()) {
		if (entry.key() != "rpxreal") {
			error = "unknown task \"" + entry.key() + "\" (only rpxreal is simulated)";
			return false;
		}
		const Json& task = entry.value();
		if (!task.is_object()) {
			error = "task rpxreal must be an object";
			return false;
		}
		if (task.contains("running")) {
			if (!task["running"].is_boolean()) {
				error = "task rpxreal: \"running\" must be true or false";
				return false;
			}
			out.rpxreal.running = task["running"].get<bool>();
		}
		if (task.contains("holds")) {
			if (!task["holds"].is_array()) {
				error = "task rpxreal: \"holds\" must be an array of database paths";
				return false;
			}
			for (const Json& path : task["holds"]) {
				if (!path.is_string()) {
					error = "task rpxreal: \"holds\" must be an array of database paths";
					return false;
				}
				out.rpxreal.holdKeys.push_back(path.get<std::string>());
			}
		}
	}
	return true;
}

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

bool ReadServerFile(const std::string& serverFolder, ServerSettings& out, std::string& error) {
	out = ServerSettings();
	std::string path = serverFolder + "/server.json";
	std::ifstream in(path);
	if (!in) return true;
	Json root = Json::parse(in, nullptr, false);
	if (root.is_discarded() || !root.is_object()) {
		error = path + ": not a JSON object";
		return false;
	}
	bool ok = ReadClock(root, out, error) && ReadBusy(root, out, error) && ReadFaults(root, out, error) &&
	          ReadTasks(root, out, error);
	if (!ok) error = path + ": " + error;
	return ok;
}

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
