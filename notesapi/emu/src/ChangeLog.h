// The change log beside an open database (<file>-redo): every change the API has
// accepted since the database file last committed, one record per change, written
// into a shared memory mapping of the log file. A change is in the system's file
// cache once its record is written, so it outlives a killed process without a
// system call; the file itself commits many changes at once.
//
// Records carry the log's epoch, which the database file keeps too and moves on
// with every commit: after a commit the records of the old epoch are stale and are
// never applied again. A record is used only if its checksum holds, so a record
// cut short by a kill, or garbage, ends the log.
#ifndef EMU_CHANGELOG_H
#define EMU_CHANGELOG_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace emu {

class ChangeLog {
public:
	ChangeLog() = default;
	~ChangeLog();
	ChangeLog(const ChangeLog&) = delete;
	ChangeLog& operator=(const ChangeLog&) = delete;

	static std::string PathFor(const std::string& databasePath) { return databasePath + "-redo"; }

	// Calls apply(payload) for each intact record of this epoch in the log file at
	// path, in order, until apply returns false or the records end. No file, no calls.
	// False only when apply refused a record.
	static bool ReadRecords(const std::string& path, uint64_t epoch,
	                        const std::function<bool(std::string_view)>& apply);

	// Makes an empty log of this epoch at path, with room for `capacity` bytes of
	// records; false when the file cannot be made or its space reserved.
	bool Start(const std::string& path, uint64_t epoch, size_t capacity);
	bool started() const { return map_ != nullptr; }
	// Appends one record; false when it does not fit (nothing is written then).
	bool Append(const std::vector<unsigned char>& payload);
	// Bytes of records written in this epoch.
	size_t used() const { return end_ - kHeaderSize; }
	const std::string& path() const { return path_; }
	// Empties the log for the next epoch (the old records stay on disk but are stale).
	void Restart(uint64_t epoch);
	// Closes the log; removes its file when `remove` is true.
	void Stop(bool remove);

private:
	static constexpr size_t kHeaderSize = 16;

	std::string path_;
	int fd_ = -1;
	unsigned char* map_ = nullptr;
	size_t capacity_ = 0;
	size_t end_ = kHeaderSize;
	uint64_t epoch_ = 0;
};

}  // namespace emu

#endif
