#include "ChangeLog.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace emu {
namespace {

constexpr char kMagic[8] = {'E', 'M', 'U', 'R', 'E', 'D', 'O', '1'};

// A record: payload length, spare, epoch, checksum, then the payload padded to 8 bytes.
struct RecordHead {
	uint32_t length;
	uint32_t spare;
	uint64_t epoch;
	uint64_t checksum;
};
static_assert(sizeof(RecordHead) == 24, "record head layout");

size_t Padded(size_t n) {
	return (n + 7) & ~size_t{7};
}

uint64_t Mix(uint64_t h) {
	h ^= h >> 33;
	h *= 0xff51afd7ed558ccdULL;
	h ^= h >> 33;
	h *= 0xc4ceb9fe1a85ec53ULL;
	h ^= h >> 33;
	return h;
}

// Detects a record cut short or overwritten in part; eight bytes a step.
uint64_t Checksum(uint64_t epoch, const unsigned char* data, size_t size) {
	uint64_t h = Mix(epoch ^ (size * 0x9e3779b97f4a7c15ULL));
	size_t i = 0;
	for (; i + 8 <= size; i += 8) {
		uint64_t word;
		std::memcpy(&word, data + i, 8);
		h = (h ^ (word * 0x87c37b91114253d5ULL)) * 0x4cf5ad432745937fULL;
		h = (h << 31) | (h >> 33);
	}
	uint64_t tail = 0;
	std::memcpy(&tail, data + i, size - i);
	return Mix(h ^ tail ^ size);
}

bool ReadAll(int fd, void* out, size_t size, off_t at) {
	auto* p = static_cast<unsigned char*>(out);
	while (size > 0) {
		ssize_t n = ::pread(fd, p, size, at);
		if (n <= 0) return false;
		p += n;
		at += n;
		size -= static_cast<size_t>(n);
	}
	return true;
}

}  // namespace

ChangeLog::~ChangeLog() {
	Stop(false);
}

bool ChangeLog::ReadRecords(const std::string& path, uint64_t epoch,
                            const std::function<bool(std::string_view)>& apply) {
	int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
	if (fd < 0) return true;
	struct stat st;
	char magic[sizeof kMagic];
	if (::fstat(fd, &st) != 0 || !ReadAll(fd, magic, sizeof magic, 0) ||
	    std::memcmp(magic, kMagic, sizeof kMagic) != 0) {
		::close(fd);
		return true;
	}
	const size_t fileSize = static_cast<size_t>(st.st_size);
	std::vector<unsigned char> payload;
	bool applied = true;
	for (size_t at = kHeaderSize; at + sizeof(RecordHead) <= fileSize;) {
		RecordHead head;
		if (!ReadAll(fd, &head, sizeof head, static_cast<off_t>(at))) break;
		size_t room = fileSize - at - sizeof head;
		if (head.epoch != epoch || head.length == 0 || head.length > room) break;
		payload.resize(head.length);
		if (!ReadAll(fd, payload.data(), head.length, static_cast<off_t>(at + sizeof head))) break;
		if (Checksum(epoch, payload.data(), payload.size()) != head.checksum) break;
		if (!apply(std::string_view(reinterpret_cast<const char*>(payload.data()), payload.size()))) {
			applied = false;
			break;
		}
		at += sizeof head + Padded(head.length);
	}
	::close(fd);
	return applied;
}

bool ChangeLog::Start(const std::string& path, uint64_t epoch, size_t capacity) {
	Stop(false);
	int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
	if (fd < 0) return false;
	// Reserved up front: a write into the mapping can then never meet a full disk.
	if (::posix_fallocate(fd, 0, static_cast<off_t>(capacity)) != 0) {
		::close(fd);
		::unlink(path.c_str());
		return false;
	}
	void* map = ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
	if (map == MAP_FAILED) {
		::close(fd);
		::unlink(path.c_str());
		return false;
	}
	// Pages are touched in order as records are written; reading ahead would only zero-fill
	// pages a short log never uses.
	::madvise(map, capacity, MADV_RANDOM);
	path_ = path;
	fd_ = fd;
	map_ = static_cast<unsigned char*>(map);
	capacity_ = capacity;
	std::memcpy(map_, kMagic, sizeof kMagic);
	Restart(epoch);
	return true;
}

bool ChangeLog::Append(const std::vector<unsigned char>& payload) {
	if (!map_ || payload.empty() || payload.size() > UINT32_MAX) return false;
	size_t need = sizeof(RecordHead) + Padded(payload.size());
	if (need > capacity_ - end_) return false;
	RecordHead head{static_cast<uint32_t>(payload.size()), 0, epoch_,
	                Checksum(epoch_, payload.data(), payload.size())};
	std::memcpy(map_ + end_ + sizeof head, payload.data(), payload.size());
	std::memcpy(map_ + end_, &head, sizeof head);
	end_ += need;
	return true;
}

void ChangeLog::Restart(uint64_t epoch) {
	epoch_ = epoch;
	end_ = kHeaderSize;
	if (map_) std::memcpy(map_ + sizeof kMagic, &epoch_, sizeof epoch_);
}

void ChangeLog::Stop(bool remove) {
	if (map_) ::munmap(map_, capacity_);
	if (fd_ >= 0) ::close(fd_);
	if (remove && !path_.empty()) ::unlink(path_.c_str());
	map_ = nullptr;
	fd_ = -1;
	capacity_ = 0;
	end_ = kHeaderSize;
	path_.clear();
}

}  // namespace emu
