// Taking databases offline and bringing them back (NSFTakeDatabaseOffline,
// NSFBringDatabaseOnline). The offline state lives in this process only.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "Server.h"
#include "Store.h"

namespace emu {
namespace {

// Interval at which a real-clock wait looks again whether the database came free.
constexpr std::chrono::milliseconds kPoll{50};

std::set<std::string>& OfflineKeys() {
	static std::set<std::string> keys;
	return keys;
}

// The file a Notes path names; ".nsf" may be left out, as for NSFDbOpen.
std::string FileOf(const char* notesPath) {
	std::string path = ResolveApiPath(notesPath);
	if (!HasExtension(path) && !PathExists(path)) path += ".nsf";
	return path;
}

// server.json may make the database refuse this attempt; each attempt uses up one.
bool BusyBySettings(const std::string& key) {
	for (BusyRule& rule : CurrentServer().busy) {
		if (rule.pathKey != key || rule.remaining == 0) continue;
		if (rule.remaining > 0) --rule.remaining;
		return true;
	}
	return false;
}

bool InUse(const std::string& file) {
	return HeldByTask(file) || DbFile::IsOpen(file);
}

// Retries for waitMillis while the database is in use. A real wait lets
// other threads in between looks; under the virtual clock nothing else runs
// while the clock jumps, so the wait ends in use.
STATUS WaitUntilFree(const std::string& file, bool busyAttempt, DWORD waitMillis,
                     std::unique_lock<std::recursive_mutex>& lock) {
	if (!busyAttempt && !InUse(file)) return NOERROR;
	if (VirtualClock()) {
		PlatformWait(waitMillis);
		return ERR_DBINUSE;
	}
	auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMillis);
	while (busyAttempt || InUse(file)) {
		auto now = std::chrono::steady_clock::now();
		if (now >= deadline) return ERR_DBINUSE;
		lock.unlock();
		std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(deadline - now, kPoll));
		lock.lock();
	}
	return NOERROR;
}

// A folder or a plain file is not a database; opening it tells.
bool IsDatabaseFile(const std::string& file) {
	std::shared_ptr<DbFile> db;
	return DbFile::Open(file, db) == NOERROR;
}

void DeleteFile(const std::string& file) {
	::unlink(file.c_str());
	for (const char* suffix : {"-journal", "-wal", "-shm", "-redo"}) ::unlink((file + suffix).c_str());
}

}  // namespace

bool IsOffline(const std::string& filePath) {
	return OfflineKeys().count(DatabaseKey(filePath)) != 0;
}

void MarkOnline(const std::string& filePath) {
	OfflineKeys().erase(DatabaseKey(filePath));
}

void ResetOffline() {
	OfflineKeys().clear();
}

}  // namespace emu

using namespace emu;

STATUS LNPUBLIC NSFTakeDatabaseOffline(const char far* dbPath, DWORD WaitTime, DWORD options) {
	std::unique_lock<std::recursive_mutex> lock(ApiMutex());
	if (!dbPath || !*dbPath) return ERR_INV_FILE_NAME;
	std::string file = FileOf(dbPath);
	if (STATUS s = CheckCall("NSFTakeDatabaseOffline", file)) return s;
	std::string key = DatabaseKey(file);
	if (!IsOffline(file)) {
		if (!PathExists(file)) return ERR_NOEXIST;
		if (!IsDatabaseFile(file)) return ERR_NOT_NSF;
		if (STATUS s = WaitUntilFree(file, BusyBySettings(key), WaitTime, lock)) return s;
		OfflineKeys().insert(key);
	}
	if (!(options & OFFLINE_NODELETE)) DeleteFile(file);
	return NOERROR;
}

STATUS LNPUBLIC NSFBringDatabaseOnline(const char far* dbPath, DWORD /*options*/) {
	ApiLock lock(ApiMutex());
	if (!dbPath || !*dbPath) return ERR_INV_FILE_NAME;
	std::string file = FileOf(dbPath);
	if (STATUS s = CheckCall("NSFBringDatabaseOnline", file)) return s;
	if (!PathExists(file)) return ERR_NOEXIST;
	MarkOnline(file);
	return NOERROR;
}
