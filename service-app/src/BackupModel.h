#ifndef BACKUP_MODEL_H
#define BACKUP_MODEL_H

#include <app_control.h>
#include <talvoro_cloud.h>

#include <stdint.h>

#include <functional>
#include <string>

#include "MvLiveness.h"
#include "MvSvcLog.h"
#include "MvSvcTypes.h"

// One backup exchange with the cloud library: declares `size` records, fills their values
// from the subclass when the library asks, and hands the library the record file. The library
// holds a liveness token, not the model's address: a callback that comes after the model is gone
// does nothing. Only one backup exchange runs at a time, from a successful run() to its
// completion: run() refuses while another model's runs, whatever the library would do with a
// second registrant. The completion callback is the model's last act on itself, so its receiver
// may destroy the model there.
class BackupModel {
 public:
  BackupModel(app_control_h request, unsigned int size);
  virtual ~BackupModel();

  virtual std::string getKeyStr() = 0;
  virtual std::string getJsonStr(unsigned int index) = 0;
  // Lends the text of getJsonStr(index) to `use` for the length of the call. A subclass whose
  // text comes in a buffer of its own lends that instead, so that no copy of the document is
  // made before the library takes its own.
  virtual void lendJsonText(unsigned int index, const std::function<void(const char* text)>& use);

  bool run(const char* operation);
  void setOnBackupCompleted(MvSvcCompletionCb callback);

 private:
  void _init();
  void _fini();
  // Kept by the design, though no step of the backup calls it: the record file stays in the
  // shared trusted directory after the backup.
  void _removeFile();
  uint64_t _getCurrentDeviceMilliSecTime();

  static void _backupPreparedCb(void* userData);
  static void _backupSetKeysDatesCb(void* userData);
  static void _backupRecordCb(void* list, void* userData);
  static void _backupCompleteCb(bool success, void* userData);
  bool _fillRecords(talvoro_cloud_list_h records, const MvSvcSourceLocation& caller);
  static void _sendBackupPath(const char* path, bool success, const MvSvcSourceLocation& caller);

  uint32_t _size;
  bool _isInitialized;
  std::string _filePath;
  app_control_h _request;  // not owned: only replied to, inside run()
  MvSvcCompletionCb _onBackupCompleted;
  MvLiveness<BackupModel> _liveness;
};

#endif
