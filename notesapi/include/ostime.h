/*
 * ostime.h - the current time and time zone of the machine.
 */
#ifndef OS_TIME_DEFS
#define OS_TIME_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

#ifdef __cplusplus
extern "C" {
#endif

void LNPUBLIC OSCurrentTIMEDATE(TIMEDATE far *retTimeDate);

/* Zone is positive WEST of Greenwich (EST = 5, CET = -1); a zone with
   minutes is encoded minutes*100 + hours. DST is 1 when daylight saving
   applies. Either pointer may be NULL. */
void LNPUBLIC OSCurrentTimeZone(int far *retZone, int far *retDST);

#ifdef __cplusplus
}
#endif

#endif /* OS_TIME_DEFS */
