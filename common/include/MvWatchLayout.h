// Where a watch directory keeps what the platform makes for an app. The host platform makes
// these directories; the launcher and the tools look into them.
#ifndef MV_WATCH_LAYOUT_H
#define MV_WATCH_LAYOUT_H

#include <string>

// An app's shared trusted directory, relative to the watch's root, without a trailing slash.
inline std::string mvSharedTrustedDir(const std::string& appId) {
  return "apps/" + appId + "/shared/trusted";
}

#endif
