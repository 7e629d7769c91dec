#ifndef MVSVC_CLOUD_STEPS_H
#define MVSVC_CLOUD_STEPS_H

#include <app_control.h>
#include <stddef.h>

#include <string>

// Steps that the backup and the restore exchange take alike. Failures are logged in the name of
// `caller`, the member that takes the step.

// True when the cloud library is initialised.
bool mvsvcCloudInitialize(const char* caller);
void mvsvcCloudDeinitialize(const char* caller);

// The app's shared trusted directory followed by `fileName`, if it fits a buffer of
// `bufferSize` bytes as on the watch; otherwise, or without the directory, an empty string and
// an error line. `missingLine` is the error logged when the directory is unknown (null: none).
std::string mvsvcRecordFilePath(const char* fileName,
                                size_t bufferSize,
                                const char* missingLine,
                                const char* caller);

void mvsvcRemoveRecordFile(const std::string& path, const char* caller);

// Answers the launch request `request` (not owned) with success or failure.
void mvsvcReplyToLaunchRequest(app_control_h request, bool success);

#endif
