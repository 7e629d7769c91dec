#ifndef MVSVC_CLOUD_STEPS_H
#define MVSVC_CLOUD_STEPS_H

#include <app_control.h>
#include <stddef.h>

#include <string>

#include "MvSvcLog.h"

// Steps that the backup and the restore exchange take alike. Failures are logged as `caller`'s,
// the place in the member that takes the step.

// True when the cloud library is initialised.
bool mvsvcCloudInitialize(const MvSvcSourceLocation& caller);
void mvsvcCloudDeinitialize(const MvSvcSourceLocation& caller);

// The app's shared trusted directory followed by `fileName`, if it fits a buffer of
// `bufferSize` bytes as on the watch; otherwise, or without the directory, an empty string and
// an error line. `missingLine` is the error logged when the directory is unknown (null: none).
std::string mvsvcRecordFilePath(const char* fileName,
                                size_t bufferSize,
                                const char* missingLine,
                                const MvSvcSourceLocation& caller);

void mvsvcRemoveRecordFile(const std::string& path, const MvSvcSourceLocation& caller);

// Answers the launch request `request` (not owned) with success or failure.
void mvsvcReplyToLaunchRequest(app_control_h request, bool success);

#endif
