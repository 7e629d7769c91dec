#include "MvSvcRestoreModel.h"

#include <string.h>
#include <vconf.h>

#include <memory>

#include "MvSvcJsonParser.h"
#include "MvSvcLog.h"
#include "MvSvcWatchDataTransferer.h"
#include "MvWatchNames.h"

MvSvcRestoreModel::MvSvcRestoreModel(app_control_h request) : RestoreModel(request) {}

MvSvcRestoreModel::~MvSvcRestoreModel() = default;

std::string MvSvcRestoreModel::restoreRecord(int, const char* value) {
  // A record without a readable value has nothing to restore.
  if (!value) {
    MVSVC_LOGE("Restored record has no value");
    return MV_RECORD_KEY;
  }

  // Parsed where the library holds it: a copy of the document would be alive beside the tree.
  std::unique_ptr<MvSvcJsonParser> parser(new MvSvcJsonParser(value, strlen(value)));
  parser->getStringValue("watch_main_key", _mainKey);
  parser->getStringValue("watch_sub_key", _subKey);
  _resultRestoreList = std::move(parser->getResultRestoreList());
  _imageRestoreList = std::move(parser->getImageRestoreList());
  _downloadList = std::move(parser->getDownloadList());
  parser.reset();

  doRestore();
  return MV_RECORD_KEY;
}

void MvSvcRestoreModel::doRestore() {
  _transferer = std::make_unique<MvSvcWatchDataTransferer>(_resultRestoreList, _imageRestoreList,
                                                           _downloadList);
  _transferer->setOnTransferCompleted([this](bool success, void* userData) {
    auto* done = static_cast<MvSvcWatchDataTransferer*>(userData);
    if (!success) {
      MVSVC_LOGE("Restore failed. Do not write watch main and sub key");
    } else if (_mainKey.empty()) {
      MVSVC_LOGE("Restored mainkey string is nullptr");
    } else if (_mainKey == MV_WATCHFACE_APP_ID) {
      if (_subKey.empty())
        MVSVC_LOGE("Restored subkey string is nullptr");
      else if (done)
        done->sendWatchIdleChangeMessage(_subKey.c_str());
    } else if (vconf_set_str(MV_IDLE_CLOCK_KEY, _mainKey.c_str()) != 0) {
      MVSVC_LOGE("Failed to write main vconf key");
    }
    // Its last act was to call this: it goes now.
    _transferer.reset();
  });
  _transferer->run();
}
