#include "MvSvcCloudSteps.h"

#include <Ecore_File.h>
#include <app_common.h>
#include <talvoro_cloud.h>

#include "MvHandles.h"
#include "MvSvcLog.h"

bool mvsvcCloudInitialize(const char* caller) {
  const int ret = talvoro_cloud_initialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE_FOR(caller, "talvoro_cloud_initialize failed.(%d)", ret);
    return false;
  }
  return true;
}

void mvsvcCloudDeinitialize(const char* caller) {
  const int ret = talvoro_cloud_deinitialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE_FOR(caller, "talvoro_cloud_deinitialize failed.(%d)", ret);
}

std::string mvsvcRecordFilePath(const char* fileName,
                                size_t bufferSize,
                                const char* missingLine,
                                const char* caller) {
  MvCharPtr directory(app_get_shared_trusted_path());
  if (!directory) {
    if (missingLine)
      MVSVC_LOGE_FOR(caller, "%s", missingLine);
    return std::string();
  }
  std::string path = std::string(directory.get()) + fileName;
  // The watch formats the path into a fixed buffer: a cut path would name another file.
  if (path.size() >= bufferSize) {
    MVSVC_LOGE_FOR(caller, "Record file path is too long: %s", path.c_str());
    return std::string();
  }
  return path;
}

void mvsvcRemoveRecordFile(const std::string& path, const char* caller) {
  if (ecore_file_exists(path.c_str()) != EINA_TRUE) {
    MVSVC_LOGE_FOR(caller, "file is not exist!");
    return;
  }
  if (ecore_file_remove(path.c_str()) != EINA_TRUE)
    MVSVC_LOGE_FOR(caller, "file remove failed.");
}

void mvsvcReplyToLaunchRequest(app_control_h request, bool success) {
  MvAppControlPtr reply = mvCreateAppControl();
  app_control_reply_to_launch_request(
      reply.get(), request, success ? APP_CONTROL_RESULT_SUCCEEDED : APP_CONTROL_RESULT_FAILED);
}
