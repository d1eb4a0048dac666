// LMBCS text utilities: the character-level rules of LMBCS (how long a character is, which
// bytes start a double-byte character) and the small text services built on them: wildcard
// matching, upper-casing, number conversion, bounded copies that never split a character,
// UNID parsing and path tidying. None of them keeps state.
//
// The pure functions live in RkLMBCS.cpp. _toUpperStringLMBCS, lmbcs_itoa, lmbc_atoi,
// lmbc_strtol, nls_strncpy and nls_strncat call the platform and live in RkLMBCSPlatform.cpp,
// so a program that does not link the platform library can still use the rest.
#ifndef RK_LMBCS_H
#define RK_LMBCS_H

#include "global.h"
#include "nls.h"
#include "nsfdata.h"

#include "RkFormat.h"

// Size in bytes, the byte itself included, of a character introduced by a byte 0x00 to 0x1F.
extern const int nLMBCSGroupSize[32];
// Lead-byte flags of the double-byte groups 0x10, 0x11, 0x12 and 0x13 (one row each),
// indexed by byte - 0x80.
extern const int fLMBCSLeadbyte[4][128];

// Result of nls_strncpy / nls_strncat for bad arguments: 0xFFFFABAD, NLS_BADPARM in its low
// 16 bits.
const int RK_NLS_BADPARM = -0x5453;

// True for the multibyte group bytes 0x10 to 0x17.
bool IsLMBCSMultibyteGroup(unsigned char b);
// Whether b (0x80 or above) starts a double-byte character of group; true for any group
// outside 0x10 to 0x13.
bool IsLMBCSLeadbyte(unsigned char b, unsigned char group);
// Bytes of the character starting with b when double-byte characters belong to group.
int LMBCSCharSizeBytes(unsigned char b, unsigned char group);

// Widens UTF-16 units into out (count units of room) until a zero unit or count units, and
// zero-ends out (at count - 1 when the input filled it). Does nothing for NULL or count < 1.
void Utf162Utf32(const unsigned short* in, unsigned int* out, int count);

// Parses the 32-hex-digit text form "%08X%08X%08X%08X" (file part high, low; note part high,
// low) into unid. The text must be exactly 32 hexadecimal digits (either case); otherwise
// unid is left all zero and the result is false.
bool convertStringToUNID(char* text, UNIVERSALNOTEID* unid);

// Turns every "\" into "/" and removes one trailing "/". flag has no effect. Returns 0, or
// -1 for a NULL path.
int MkCanonicalPath(char* path, bool flag);

// The standard toupper of the byte c (c is taken modulo 256, so a negative char is safe).
int lmbcs_toupper(int c);
// Upper-cases every byte of in into out (which must hold strlen(in) + 1 bytes); in == out is
// allowed. Does nothing when either is NULL.
void _toUpperString(const char* in, char* out);

// Native text in, LMBCS upper case out. out must hold 256 bytes; at most 255 are used.
void _toUpperStringLMBCS(const char* in, char* out);
// value in radix 10 ("%d") or 16 ("%x"), any other radix the empty text, as LMBCS in out
// (size bytes, zero-ended). Returns out.
char* lmbcs_itoa(char* out, int size, int value, int radix);
// LMBCS number text to native (at most 255 bytes) and then to an integer with strtol (radix
// 10 for lmbc_atoi). NULL text gives 0.
int lmbc_atoi(const char* text);
long lmbc_strtol(const char* text, int radix);

// Whole-text wildcard match: "*" any run of characters, "?" one byte, anything else equal
// after upper-casing, with multibyte characters compared whole.
bool lmbcsMatch(const char* text, const char* pattern);

// Copies whole characters of in (up to inLength bytes or its zero, NLS_NULLTERM for just the
// zero) into out while the copy stays within min(outSize - 1, maxLength) bytes; never splits
// a character and zero-ends out. Returns 0, or RK_NLS_BADPARM for outSize 0 or a NULL
// pointer. Characters are those of the character set cls (OSGetLMBCSCLS for LMBCS), stepped
// with the platform's NLS_goto_next.
int nls_strncpy(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                unsigned short maxLength, NLS_PINFO cls);
// nls_strncpy at the end of out with the room left; RK_NLS_BADPARM when out (outSize bytes)
// has no room left or no zero.
int nls_strncat(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                unsigned short maxLength, NLS_PINFO cls);

#endif
