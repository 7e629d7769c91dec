#include "MvSvcBackupModel.h"

#include <stdlib.h>
#include <vconf.h>

#include <memory>

#include "MvHandles.h"
#include "MvSvcJsonBuilder.h"
#include "MvSvcLog.h"
#include "MvWatchNames.h"

namespace {

// The key's value, or "" when it cannot be read.
std::string readConfig(const char* key) {
  MvCharPtr value(vconf_get_str(key));
  return value ? value.get() : "";
}

}  // namespace

MvSvcBackupModel::MvSvcBackupModel(app_control_h request,
                                   std::vector<WatchResultData>& resultDataList,
                                   std::vector<WatchImageData>& imageDataList)
    : BackupModel(request, 1),
      _resultDataList(std::move(resultDataList)),
      _imageDataList(std::move(imageDataList)) {
  resultDataList.clear();
  imageDataList.clear();
}

MvSvcBackupModel::~MvSvcBackupModel() = default;

std::string MvSvcBackupModel::getKeyStr() {
  return std::string();
}

std::string MvSvcBackupModel::getJsonStr(unsigned int index) {
  std::string text;
  getJsonStr(index, [&text](const char* json) { text = json; });
  return text;
}

void MvSvcBackupModel::lendJsonText(unsigned int index,
                                    const std::function<void(const char* text)>& use) {
  getJsonStr(index, use);
}

void MvSvcBackupModel::getJsonStr(unsigned int, const std::function<void(const char* text)>& use) {
  std::unique_ptr<MvSvcJsonBuilder> builder(new MvSvcJsonBuilder());

  std::string mainKey = readConfig(MV_IDLE_CLOCK_KEY);
  if (mainKey.empty())
    MVSVC_LOGE("Failed to get watch main vconf key");
  std::string subKey = readConfig(MV_WATCHFACE_NAME_KEY);
  if (subKey.empty())
    MVSVC_LOGE("Failed to get watch sub key");

  builder->addStringMember("watch_main_key", mainKey);
  builder->addStringMember("watch_sub_key", subKey);
  builder->addResultXmls(_resultDataList);
  builder->addMyPhotos(_imageDataList);

  MvGCharPtr text = builder->takeJsonMessage();
  builder.reset();
  use(text ? text.get() : "");
}
