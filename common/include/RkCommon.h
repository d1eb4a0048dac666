// The common runtime library in one include: console commands and tasks, versioned install
// paths, LMBCS text utilities and the common debug log.
#ifndef RK_COMMON_H
#define RK_COMMON_H

#include "RkCommonUtil.h"
#include "RkFileOpUtil.h"
#include "RkIniReader.h"
#include "RkLMBCS.h"
#include "RkVersionPath.h"
#include "RkRPXInit.h"
#include "rk_LOG_CRWLock.h"

#endif
