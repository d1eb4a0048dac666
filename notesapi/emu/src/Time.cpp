// TIMEDATE values: Innards[0] holds hundredths of a second since midnight
// GMT, Innards[1] the Julian day number in its low 24 bits (the zone and
// daylight-saving bits stay 0: times are kept in GMT).
#include <time.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Emu.h"

namespace emu {
namespace {

constexpr int64_t kJulianDayOfUnixEpoch = 2440588;
constexpr int64_t kMillisPerDay = 86400000;
constexpr DWORD kDayMask = 0x00FFFFFF;

}  // namespace

TIMEDATE FromUnixMillis(int64_t millis) {
	int64_t day = millis / kMillisPerDay;
	int64_t rest = millis % kMillisPerDay;
	if (rest < 0) {
		rest += kMillisPerDay;
		--day;
	}
	TIMEDATE t;
	t.Innards[0] = static_cast<DWORD>(rest / 10);
	t.Innards[1] = static_cast<DWORD>(day + kJulianDayOfUnixEpoch) & kDayMask;
	return t;
}

bool IsZero(const TIMEDATE& t) {
	return t.Innards[0] == 0 && t.Innards[1] == 0;
}

// "YYYY-MM-DD hh:mm:ss" in GMT; a date or time half set to ALLDAY/ANYDAY is left out.
std::string FormatTime(const TIMEDATE& t) {
	char date[32] = "", clock[32] = "";
	if (t.Innards[1] != ANYDAY) {
		time_t seconds = static_cast<time_t>((static_cast<int64_t>(t.Innards[1] & kDayMask) - kJulianDayOfUnixEpoch) *
		                                     86400);
		struct tm parts;
		gmtime_r(&seconds, &parts);
		std::snprintf(date, sizeof date, "%04d-%02d-%02d", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
	}
	if (t.Innards[0] != ALLDAY) {
		DWORD s = t.Innards[0] / 100;
		std::snprintf(clock, sizeof clock, "%02u:%02u:%02u", s / 3600, (s / 60) % 60, s % 60);
	}
	std::string out = date;
	if (*date && *clock) out += " ";
	return out + clock;
}

}  // namespace emu

using namespace emu;

void LNPUBLIC OSCurrentTIMEDATE(TIMEDATE far* retTimeDate) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSCurrentTIMEDATE") || !retTimeDate) return;
	*retTimeDate = Now();
}

int LNPUBLIC TimeDateCompare(const TIMEDATE far* t1, const TIMEDATE far* t2) {
	ApiLock lock(ApiMutex());
	CheckCall("TimeDateCompare");
	if (!t1 || !t2) return 0;
	DWORD d1 = t1->Innards[1] & kDayMask, d2 = t2->Innards[1] & kDayMask;
	if (d1 != d2) return d1 < d2 ? -1 : 1;
	if (t1->Innards[0] != t2->Innards[0]) return t1->Innards[0] < t2->Innards[0] ? -1 : 1;
	return 0;
}

void LNPUBLIC TimeConstant(WORD Type, TIMEDATE far* retTimeDate) {
	ApiLock lock(ApiMutex());
	if (CheckCall("TimeConstant") || !retTimeDate) return;
	switch (Type) {
	case TIMEDATE_MINIMUM: retTimeDate->Innards[0] = 0; retTimeDate->Innards[1] = 0; break;
	case TIMEDATE_MAXIMUM: retTimeDate->Innards[0] = 8639999; retTimeDate->Innards[1] = kDayMask; break;
	default: retTimeDate->Innards[0] = ALLDAY; retTimeDate->Innards[1] = ANYDAY; break;
	}
}
