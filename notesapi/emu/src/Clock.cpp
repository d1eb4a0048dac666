// The platform clock (real, or advanced by waits under the virtual clock),
// the local time zone and the broken-down local time of a TIMEDATE.
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Server.h"

namespace emu {
namespace {

constexpr int64_t kJulianDayOfUnixEpoch = 2440588;
constexpr int64_t kMillisPerDay = 86400000;
constexpr DWORD kDayMask = 0x00FFFFFF;

// Sum of the waits made under the virtual clock.
std::atomic<int64_t> gVirtualOffset{0};

int64_t RealMillis() {
	struct timespec ts;
	clock_gettime(CLOCK_REALTIME, &ts);
	return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool HasDate(const TIMEDATE& t) { return t.Innards[1] != ANYDAY; }
bool HasTime(const TIMEDATE& t) { return t.Innards[0] != ALLDAY; }

// Seconds since 1970 of a TIMEDATE with both halves set.
int64_t UnixSeconds(const TIMEDATE& t) {
	int64_t day = static_cast<int64_t>(t.Innards[1] & kDayMask) - kJulianDayOfUnixEpoch;
	return day * 86400 + t.Innards[0] / 100;
}

// The platform's zone form: hours west of GMT, minutes*100 + hours, negative east.
int ZoneFromSecondsEast(long secondsEast) {
	long west = -secondsEast;
	int sign = west < 0 ? -1 : 1;
	long magnitude = west < 0 ? -west : west;
	return sign * static_cast<int>((magnitude % 3600) / 60 * 100 + magnitude / 3600);
}

long SecondsEastFromZone(int zone) {
	int sign = zone < 0 ? 1 : -1;  // a positive zone lies west
	int magnitude = std::abs(zone);
	return sign * (static_cast<long>(magnitude % 100) * 3600 + static_cast<long>(magnitude / 100) * 60);
}

void SetDateFields(const struct tm& parts, TIME& time) {
	time.year = parts.tm_year + 1900;
	time.month = parts.tm_mon + 1;
	time.day = parts.tm_mday;
	time.weekday = parts.tm_wday + 1;
}

void SetClockFields(const struct tm& parts, int hundredth, TIME& time) {
	time.hour = parts.tm_hour;
	time.minute = parts.tm_min;
	time.second = parts.tm_sec;
	time.hundredth = hundredth;
}

void ClearDateFields(TIME& time) {
	time.year = time.month = time.day = time.weekday = -1;
}

void ClearClockFields(TIME& time) {
	time.hour = time.minute = time.second = time.hundredth = -1;
}

// Fills the fields for a time seen secondsEast from GMT. A date without a
// time or a time without a date is not moved between zones.
void Expand(TIME& time, long secondsEast) {
	const TIMEDATE& gm = time.GM;
	struct tm parts;
	if (HasDate(gm) && HasTime(gm)) {
		time_t local = static_cast<time_t>(UnixSeconds(gm) + secondsEast);
		gmtime_r(&local, &parts);
		SetDateFields(parts, time);
		SetClockFields(parts, static_cast<int>(gm.Innards[0] % 100), time);
		return;
	}
	if (HasDate(gm)) {
		time_t day = static_cast<time_t>((static_cast<int64_t>(gm.Innards[1] & kDayMask) - kJulianDayOfUnixEpoch) * 86400);
		gmtime_r(&day, &parts);
		SetDateFields(parts, time);
	} else {
		ClearDateFields(time);
	}
	if (HasTime(gm)) {
		time_t clock = static_cast<time_t>(gm.Innards[0] / 100);
		gmtime_r(&clock, &parts);
		SetClockFields(parts, static_cast<int>(gm.Innards[0] % 100), time);
	} else {
		ClearClockFields(time);
	}
}

bool ValidTimeDate(const TIMEDATE& t) {
	return !HasTime(t) || t.Innards[0] < TICKS_IN_DAY;
}

}  // namespace

int64_t ClockMillis() {
	return RealMillis() + gVirtualOffset.load();
}

bool VirtualClock() {
	return CurrentServer().clock == ClockKind::Virtual;
}

void PlatformWait(uint32_t millis) {
	if (VirtualClock()) {
		gVirtualOffset += millis;
		return;
	}
	std::this_thread::sleep_for(std::chrono::milliseconds(millis));
}

std::string ConsoleTimeStamp() {
	time_t seconds = static_cast<time_t>(ClockMillis() / 1000);
	struct tm parts;
	localtime_r(&seconds, &parts);
	char text[64];
	std::snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d", parts.tm_mon + 1, parts.tm_mday,
	              parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
	return text;
}

TIMEDATE Now() {
	return FromUnixMillis(ClockMillis());
}

}  // namespace emu

using namespace emu;

void LNPUBLIC OSCurrentTimeZone(int far* retZone, int far* retDST) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSCurrentTimeZone")) return;
	time_t now = static_cast<time_t>(ClockMillis() / 1000);
	struct tm parts;
	localtime_r(&now, &parts);
	bool dst = parts.tm_isdst > 0;
	// The zone is the standard one; daylight saving is reported on its own.
	if (retZone) *retZone = ZoneFromSecondsEast(parts.tm_gmtoff - (dst ? 3600 : 0));
	if (retDST) *retDST = dst ? 1 : 0;
}

BOOL LNPUBLIC TimeGMToLocal(TIME far* Time) {
	ApiLock lock(ApiMutex());
	if (CheckCall("TimeGMToLocal") || !Time || !ValidTimeDate(Time->GM)) return TRUE;
	long secondsEast = 0;
	bool dst = false;
	if (HasDate(Time->GM) && HasTime(Time->GM)) {
		time_t at = static_cast<time_t>(UnixSeconds(Time->GM));
		struct tm parts;
		localtime_r(&at, &parts);
		secondsEast = parts.tm_gmtoff;
		dst = parts.tm_isdst > 0;
	}
	Expand(*Time, secondsEast);
	Time->dst = dst ? 1 : 0;
	Time->zone = ZoneFromSecondsEast(secondsEast - (dst ? 3600 : 0));
	return FALSE;
}

BOOL LNPUBLIC TimeGMToLocalZone(TIME far* Time) {
	ApiLock lock(ApiMutex());
	if (CheckCall("TimeGMToLocalZone") || !Time || !ValidTimeDate(Time->GM)) return TRUE;
	// The caller's zone; its daylight-saving flag adds the hour at any date.
	long secondsEast = SecondsEastFromZone(Time->zone) + (Time->dst ? 3600 : 0);
	Expand(*Time, secondsEast);
	return FALSE;
}
