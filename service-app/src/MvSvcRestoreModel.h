#ifndef MVSVC_RESTORE_MODEL_H
#define MVSVC_RESTORE_MODEL_H

#include <app_control.h>

#include <memory>
#include <string>
#include <vector>

#include "MvSvcTypes.h"
#include "MvSvcWatchDataTransferer.h"
#include "RestoreModel.h"

// The service's restore exchange: each restored record's document is parsed and transferred
// back onto the watch, and the idle clock is put back in force.
class MvSvcRestoreModel : public RestoreModel {
 public:
  // `request` stays the caller's; it is only replied to.
  explicit MvSvcRestoreModel(app_control_h request);
  virtual ~MvSvcRestoreModel();

  std::string restoreRecord(int index, const char* value) override;
  // Hands the current lists to a transferer and runs it; the lists are empty afterwards.
  void doRestore();

 private:
  std::string _mainKey;
  std::string _subKey;
  std::vector<WatchResultData> _resultRestoreList;
  std::vector<WatchImageData> _imageRestoreList;
  std::vector<WatchResultData> _downloadList;
  // The transfer of the record being restored, from doRestore() to its completion.
  std::unique_ptr<MvSvcWatchDataTransferer> _transferer;
};

#endif
