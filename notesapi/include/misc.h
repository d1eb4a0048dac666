/*
 * misc.h - conversion between TIMEDATE and broken-down TIME, and time
 * constants.
 */
#ifndef MISC_DEFS
#define MISC_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* Broken-down time. GM is the TIMEDATE the other fields describe. */
typedef struct {
	int year;       /* 1-32767 */
	int month;      /* 1-12 */
	int day;        /* 1-31 */
	int weekday;    /* 1-7, Sunday is 1 */
	int hour;       /* 0-23 */
	int minute;     /* 0-59 */
	int second;     /* 0-59 */
	int hundredth;  /* 0-99 */
	int dst;        /* daylight saving in effect */
	int zone;       /* same convention as OSCurrentTimeZone */
	TIMEDATE GM;
} TIME;             /* 48 bytes */

/* Innards values meaning "no time" / "no date" in a TIMEDATE. */
#define ALLDAY 0xffffffffL
#define ANYDAY 0xffffffffL

/* TimeConstant selectors. */
#define TIMEDATE_MINIMUM  0
#define TIMEDATE_MAXIMUM  1
#define TIMEDATE_WILDCARD 2

/* Hundredths of a second. */
#define TICKS_IN_SECOND 100
#define TICKS_IN_MINUTE 6000
#define TICKS_IN_HOUR   360000
#define TICKS_IN_DAY    8640000

#ifdef __cplusplus
extern "C" {
#endif

/* The following return FALSE on success and TRUE on error. */
BOOL LNPUBLIC TimeGMToLocal(TIME far *Time);      /* local zone */
BOOL LNPUBLIC TimeGMToLocalZone(TIME far *Time);  /* Time->zone, Time->dst */
BOOL LNPUBLIC TimeLocalToGM(TIME far *Time);

void LNPUBLIC TimeConstant(WORD Type, TIMEDATE far *retTimeDate);
/* <0, 0, >0 as t1 is before, equal to, after t2. */
int LNPUBLIC TimeDateCompare(const TIMEDATE far *t1, const TIMEDATE far *t2);

#ifdef __cplusplus
}
#endif

#endif /* MISC_DEFS */
