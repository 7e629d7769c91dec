#ifndef MVSVC_WATCH_APP_LIST_H
#define MVSVC_WATCH_APP_LIST_H

#include <pkgmgr-info.h>

#include "MvSvcLog.h"

// Calls `callback` with `userData` once per watch app in the package database, global apps
// included, as the collector and the transferer list them. Failures are logged as `caller`'s.
void mvsvcForeachWatchApp(pkgmgrinfo_app_list_cb callback,
                          void* userData,
                          const MvSvcSourceLocation& caller);

// The first steps of both classes' per-app callback: the package ID (owned by `handle`) and the
// preload flag. False, with the error logged as `caller`'s, when either is unreadable or
// `userData` is null; the callback then stops the enumeration.
bool mvsvcReadWatchApp(const pkgmgrinfo_appinfo_h handle,
                       void* userData,
                       char** pkgId,
                       bool* preload,
                       const MvSvcSourceLocation& caller);

#endif
