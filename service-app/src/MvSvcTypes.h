#ifndef MVSVC_TYPES_H
#define MVSVC_TYPES_H

#include <functional>
#include <string>

#include "MvWatchNames.h"

// One watch face or watch app entry of a backup.
struct WatchResultData {
  std::string pkgId;   // JSON "pkgid"
  std::string svcId;   // JSON "svcid": the app that supplied the entry and takes its restore
  std::string result;  // JSON "result": settings document, or "downloaded"
};

// One custom background image of a backup.
struct WatchImageData {
  std::string fileName;  // JSON "file_name": no directory part
  std::string bgType;    // JSON "bg_type": passed through unchanged
  std::string data;      // JSON "data": the file's bytes in padded standard base64
};

// Completion of a flow object: (success, the reporting object).
using MvSvcCompletionCb = std::function<void(bool success, void* userData)>;

#endif
