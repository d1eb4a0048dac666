// The console commands the stand-in server knows: the convert task (load
// convert), the Designer task (load design -f) and the simulated real-time
// task rpxreal (tell rpxreal ...). Each answers with console lines.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Server.h"
#include "Store.h"

namespace emu {
namespace {

using Lines = std::vector<std::string>;

// Every class but documents, the ACL and the replication formulas.
constexpr WORD kDesignClasses = NOTE_CLASS_ALLNONDATA & ~(NOTE_CLASS_ACL | NOTE_CLASS_REPLFORMULA);

std::string Lower(std::string text) {
	for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
	return text;
}

bool Exists(const std::string& path) {
	struct stat st;
	return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string ErrorText(STATUS status) {
	const char* text = StatusTextOf(ERR(status));
	return text ? text : "status " + std::to_string(ERR(status));
}

// ---- Information buffer ---------------------------------------------------------
// "Title\nCategories\n#1TemplateName\n#2InheritedTemplateName".

struct Info {
	std::string title, categories, templateName, inheritFrom;
};

Info ParseInfo(const std::string& text) {
	Info info;
	size_t start = 0;
	for (int line = 0; start <= text.size(); ++line) {
		size_t nl = text.find('\n', start);
		std::string part = text.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
		if (part.compare(0, 2, "#1") == 0) info.templateName = part.substr(2);
		else if (part.compare(0, 2, "#2") == 0) info.inheritFrom = part.substr(2);
		else if (line == 0) info.title = part;
		else if (line == 1) info.categories = part;
		if (nl == std::string::npos) break;
		start = nl + 1;
	}
	return info;
}

std::string FormatInfo(const Info& info) {
	std::string text = info.title;
	if (!info.categories.empty() || !info.templateName.empty() || !info.inheritFrom.empty())
		text += "\n" + info.categories;
	if (!info.templateName.empty() || !info.inheritFrom.empty()) text += "\n#1" + info.templateName;
	if (!info.inheritFrom.empty()) text += "\n#2" + info.inheritFrom;
	if (text.size() > NSF_INFO_SIZE - 1) text.resize(NSF_INFO_SIZE - 1);
	return text;
}

STATUS ReadInfo(DbFile& file, Info& out) {
	DbSettings settings;
	if (STATUS s = file.ReadSettings(settings)) return s;
	out = ParseInfo(settings.info);
	return NOERROR;
}

// ---- Finding databases ---------------------------------------------------------------

// Opens the database a Notes path names; an offline one counts as unopenable.
STATUS OpenDatabase(const std::string& notesPath, std::shared_ptr<DbFile>& out) {
	std::string path = ResolvePath(notesPath);
	if (!Exists(path) && Exists(path + ".nsf")) path += ".nsf";
	if (IsOffline(path)) return ERR_DB_OFFLINE;
	if (!Exists(path)) return ERR_NOEXIST;
	return DbFile::Open(path, out);
}

// The database under the data directory whose template name is name (not the
// one at exceptPath).
bool FindTemplateByName(const std::string& name, const std::string& exceptPath, std::shared_ptr<DbFile>& out) {
	namespace fs = std::filesystem;
	std::error_code error;
	fs::recursive_directory_iterator it(DataDirectory(), fs::directory_options::skip_permission_denied, error);
	for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
		if (!it->is_regular_file(error)) continue;
		std::string path = it->path().string();
		std::string extension = Lower(it->path().extension().string());
		if ((extension != ".nsf" && extension != ".ntf") || path == exceptPath || IsOffline(path)) continue;
		std::shared_ptr<DbFile> file;
		Info info;
		if (DbFile::Open(path, file) || ReadInfo(*file, info)) continue;
		if (!info.templateName.empty() && AsciiUpper(info.templateName) == AsciiUpper(name)) {
			out = file;
			return true;
		}
	}
	return false;
}

bool LooksLikePath(const std::string& text) {
	return text.find_first_of("/\\") != std::string::npos || text.find('.') != std::string::npos;
}

// A template named by its file (rpx/x.ntf) or by its template name.
STATUS FindTemplate(const std::string& argument, const std::string& targetPath, std::shared_ptr<DbFile>& out) {
	if (LooksLikePath(argument)) return OpenDatabase(argument, out);
	return FindTemplateByName(argument, targetPath, out) ? NOERROR : ERR_NOEXIST;
}

// ---- Design replacement ------------------------------------------------------------------

// Replaces every design note of target by a copy of source's design notes;
// documents, the ACL and replication formulas stay. One transaction.
STATUS ReplaceDesign(DbFile& target, DbFile& source, size_t& copied) {
	std::vector<NOTEID> oldIds, newIds;
	if (STATUS s = target.NoteIdsOfClass(kDesignClasses, oldIds)) return s;
	if (STATUS s = source.NoteIdsOfClass(kDesignClasses, newIds)) return s;
	Transaction tx(target);
	if (tx.status()) return tx.status();
	for (NOTEID id : oldIds)
		if (STATUS s = target.DeleteRow(id)) return s;
	for (NOTEID id : newIds) {
		StoredNote note;
		if (STATUS s = source.ReadNote(id, true, note)) return s;
		note.added = Now();
		if (STATUS s = PutNewNote(target, note, true)) return s;
	}
	if (STATUS s = tx.Commit()) return s;
	target.Touch();
	copied = newIds.size();
	return NOERROR;
}

STATUS SetInheritance(DbFile& target, const std::string& templateName) {
	DbSettings settings;
	if (STATUS s = target.ReadSettings(settings)) return s;
	Info info = ParseInfo(settings.info);
	info.inheritFrom = templateName;
	settings.info = FormatInfo(info);
	return target.WriteSettings(settings);
}

// ---- load convert DB OLDTEMPLATE NEWTEMPLATE ---------------------------------------------------

Lines Convert(const std::vector<std::string>& args) {
	std::vector<std::string> names;
	for (const std::string& arg : args)
		if (arg.empty() || arg[0] != '-') names.push_back(arg);  // options such as -d change nothing here
	if (names.size() < 3) return {"Database conversion: usage is load convert DATABASE * TEMPLATE"};
	const std::string& dbName = names[0];
	const std::string& oldName = names[1];
	const std::string& templateArg = names[2];
	std::shared_ptr<DbFile> target, source;
	if (STATUS s = OpenDatabase(dbName, target))
		return {"Database conversion error: cannot open " + dbName + ": " + ErrorText(s)};
	if (STATUS s = FindTemplate(templateArg, target->path(), source))
		return {"Database conversion error: cannot open template " + templateArg + ": " + ErrorText(s)};
	if (source == target) return {"Database conversion error: " + dbName + " cannot be converted to its own design"};
	Info targetInfo, templateInfo;
	if (STATUS s = ReadInfo(*target, targetInfo))
		return {"Database conversion error: " + dbName + ": " + ErrorText(s)};
	if (STATUS s = ReadInfo(*source, templateInfo))
		return {"Database conversion error: " + templateArg + ": " + ErrorText(s)};
	if (oldName != "*" && AsciiUpper(oldName) != AsciiUpper(targetInfo.inheritFrom))
		return {"Database conversion: " + dbName + " does not use the design of " + oldName + "; not converted"};
	Lines lines{"Database conversion of " + dbName + " to the design of " + templateArg + " started"};
	size_t copied = 0;
	STATUS s = ReplaceDesign(*target, *source, copied);
	if (!s && !templateInfo.templateName.empty()) s = SetInheritance(*target, templateInfo.templateName);
	if (s) lines.push_back("Database conversion error: " + dbName + ": " + ErrorText(s));
	else lines.push_back("Database conversion of " + dbName + " completed: " + std::to_string(copied) + " design notes");
	return lines;
}

// ---- load design -f DB -------------------------------------------------------------------------

Lines RefreshDesign(const std::vector<std::string>& args) {
	if (args.size() != 2 || Lower(args[0]) != "-f") return {"Designer: usage is load design -f DATABASE"};
	const std::string& dbName = args[1];
	std::shared_ptr<DbFile> target, source;
	if (STATUS s = OpenDatabase(dbName, target)) return {"Designer error: cannot open " + dbName + ": " + ErrorText(s)};
	Info info;
	if (STATUS s = ReadInfo(*target, info)) return {"Designer error: " + dbName + ": " + ErrorText(s)};
	if (info.inheritFrom.empty()) return {"Designer error: " + dbName + " does not inherit its design from a template"};
	if (!FindTemplateByName(info.inheritFrom, target->path(), source))
		return {"Designer error: no master template '" + info.inheritFrom + "' found for " + dbName};
	Lines lines{"Designer: refreshing the design of " + dbName + " from '" + info.inheritFrom + "'"};
	size_t copied = 0;
	if (STATUS s = ReplaceDesign(*target, *source, copied))
		lines.push_back("Designer error: " + dbName + ": " + ErrorText(s));
	else
		lines.push_back("Designer: design of " + dbName + " refreshed: " + std::to_string(copied) + " design notes");
	return lines;
}

// ---- tell TASK ... ---------------------------------------------------------------------------------

Lines TellTask(const std::vector<std::string>& args) {
	if (args.empty()) return {"Unknown command"};
	std::string task = Lower(args[0]);
	TaskSettings& rpxreal = CurrentServer().rpxreal;
	if (task != "rpxreal" || !rpxreal.running) return {"Task " + args[0] + " is not running"};
	std::string action = args.size() > 1 ? Lower(args[1]) : std::string();
	if (action == "quit") {
		rpxreal.running = false;
		return {"rpxreal: task stopped"};
	}
	if (action == "restart") return {"rpxreal: task stopped", "rpxreal: task started"};
	return {"rpxreal: unknown request '" + (args.size() > 1 ? args[1] : std::string()) + "'"};
}

}  // namespace

std::vector<std::string> RunCommandWords(const std::vector<std::string>& words) {
	if (words.empty()) return {};
	std::string verb = Lower(words[0]);
	std::string what = words.size() > 1 ? Lower(words[1]) : std::string();
	std::vector<std::string> rest(words.begin() + std::min<size_t>(2, words.size()), words.end());
	if (verb == "load" && what == "convert") return Convert(rest);
	if (verb == "load" && what == "design") return RefreshDesign(rest);
	if (verb == "tell") return TellTask(std::vector<std::string>(words.begin() + 1, words.end()));
	return {"Unknown command"};
}

}  // namespace emu
