#ifndef RESTORE_MODEL_H
#define RESTORE_MODEL_H

#include <app_control.h>

#include <string>

#include "MvSvcTypes.h"

// One restore exchange with the cloud library: names the record file the library fills,
// hands each restored record's value to the subclass, and sends the records back stamped with
// the subclass's key and the time. The library holds the model's address until it reports
// completion, so the model must outlive that.
class RestoreModel {
 public:
  explicit RestoreModel(app_control_h request);
  virtual ~RestoreModel();

  // Restores one record's value; returns the key the record is sent back with.
  virtual std::string restoreRecord(int index, const char* value) = 0;

  bool run();
  void setOnRestoreCompleted(const MvSvcCompletionCb& callback);

 private:
  void _init();
  void _fini();
  void _removeFile();

  static void _restorePreparedCb(void* userData);
  static void _restoreGetPathCb(void* userData);
  static void _restoreRecordCb(const char* path, void* userData);
  static void _restoreCompleteCb(bool success, void* userData);

  app_control_h _request;  // not owned: only replied to
  bool _isInitialized;
  std::string _filePath;
  MvSvcCompletionCb _onRestoreCompleted;
};

#endif
