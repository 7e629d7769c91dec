#ifndef RESTORE_MODEL_H
#define RESTORE_MODEL_H

#include <app_control.h>

#include <optional>
#include <string>

#include "MvLiveness.h"
#include "MvSvcTypes.h"

// One restore exchange with the cloud library: names the record file the library fills,
// hands each restored record's value to the subclass, and sends the records back stamped with
// the subclass's key and the time. The library holds a liveness token, not the model's address:
// a callback that comes after the model is gone does nothing. The completion callback is the
// model's last act on itself, so its receiver may destroy the model there; a completion that
// the library reports while the restoration callback is still running (its transfer waits in a
// nested main loop) is held until that callback has returned, and a restoration asked for again
// meanwhile is refused. Like the backup exchange, one restore exchange runs at a time.
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
  // Kept by the design, though no step of the restore calls it: the record file stays in place.
  void _removeFile();

  static void _restorePreparedCb(void* userData);
  static void _restoreGetPathCb(void* userData);
  static void _restoreRecordCb(const char* path, void* userData);
  static void _restoreCompleteCb(bool success, void* userData);

  void _endRestoration();
  void _complete(bool success);

  app_control_h _request;  // not owned: only replied to, inside run()
  bool _isInitialized;
  std::string _filePath;
  MvSvcCompletionCb _onRestoreCompleted;
  bool _inRestoration = false;
  // A completion held back while the restoration callback runs; empty when none.
  std::optional<bool> _heldCompletion;
  MvLiveness<RestoreModel> _liveness;
};

#endif
