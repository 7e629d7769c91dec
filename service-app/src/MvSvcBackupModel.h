#ifndef MVSVC_BACKUP_MODEL_H
#define MVSVC_BACKUP_MODEL_H

#include <app_control.h>

#include <string>
#include <vector>

#include "BackupModel.h"
#include "MvSvcTypes.h"

// The service's backup exchange: one cloud record whose value is the backup document, built
// from the collected lists and the idle-clock configuration when the library asks for it.
class MvSvcBackupModel : public BackupModel {
 public:
  // Takes the lists' contents over; `request` stays the caller's.
  MvSvcBackupModel(app_control_h request,
                   std::vector<WatchResultData>& resultDataList,
                   std::vector<WatchImageData>& imageDataList);
  virtual ~MvSvcBackupModel();

  std::string getKeyStr() override;
  std::string getJsonStr(unsigned int index) override;
  // Lends json-glib's own buffer: the document is generated once and copied only by the library.
  void lendJsonText(unsigned int index, const std::function<void(const char* text)>& use) override;

 private:
  // Builds the document and lends its text to `use`. Named as the member whose lines it logs:
  // getJsonStr(index) is this with a copy.
  void getJsonStr(unsigned int index, const std::function<void(const char* text)>& use);

  std::vector<WatchResultData> _resultDataList;
  std::vector<WatchImageData> _imageDataList;
};

#endif
