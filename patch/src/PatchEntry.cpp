// The patch task's program-wide state.
#include "PatchRPX.h"

char g_szRkRPXBuildVersion[128] = "5.6.1.3001";
