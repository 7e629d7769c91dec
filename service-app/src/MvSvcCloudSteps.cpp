#include "MvSvcCloudSteps.h"

#include <Ecore_File.h>
#include <app_common.h>
#include <talvoro_cloud.h>

#include "MvHandles.h"
#include "MvSvcLog.h"
#include "MvSvcTrustedPath.h"

bool mvsvcCloudInitialize(const MvSvcSourceLocation& caller) {
  const int ret = talvoro_cloud_initialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE_AT(caller, "talvoro_cloud_initialize failed.(%d)", ret);
    return false;
  }
  return true;
}

void mvsvcCloudDeinitialize(const MvSvcSourceLocation& caller) {
  const int ret = talvoro_cloud_deinitialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE_AT(caller, "talvoro_cloud_deinitialize failed.(%d)", ret);
}

std::string mvsvcRecordFilePath(const char* fileName,
                                size_t bufferSize,
                                const char* missingLine,
                                const MvSvcSourceLocation& caller) {
  MvCharPtr directory(app_get_shared_trusted_path());
  if (!directory) {
    if (missingLine)
      MVSVC_LOGE_AT(caller, "%s", missingLine);
    return std::string();
  }
  const std::string path = mvsvcInTrustedDirectory(directory.get(), fileName);
  // The watch formats the path into a fixed buffer: a cut path would name another file.
  if (path.size() >= bufferSize) {
    MVSVC_LOGE_AT(caller, "Record file path is too long: %s", path.c_str());
    return std::string();
  }
  return path;
}

void mvsvcRemoveRecordFile(const std::string& path, const MvSvcSourceLocation& caller) {
  if (ecore_file_exists(path.c_str()) != EINA_TRUE) {
    MVSVC_LOGE_AT(caller, "file is not exist!");
    return;
  }
  if (ecore_file_remove(path.c_str()) != EINA_TRUE)
    MVSVC_LOGE_AT(caller, "file remove failed.");
}

void mvsvcReplyToLaunchRequest(app_control_h request, bool success) {
  MvAppControlPtr reply = mvCreateAppControl();
  app_control_reply_to_launch_request(
      reply.get(), request, success ? APP_CONTROL_RESULT_SUCCEEDED : APP_CONTROL_RESULT_FAILED);
}
