#ifndef MVSVC_APP_CTRL_REQUESTS_H
#define MVSVC_APP_CTRL_REQUESTS_H

#include <memory>
#include <vector>

#include "MvSvcAppCtrlModel.h"

// The app-control requests an owner has sent and not yet heard back from, owned here. They go
// with their owner, which silences them: a late reply then finds no model.
class MvSvcAppCtrlRequests {
 public:
  // Keeps `model` until release(); returns it for the request call.
  MvSvcAppCtrlModel* add(std::unique_ptr<MvSvcAppCtrlModel> model);
  // Destroys the model that replied: the user data of its reply callback.
  void release(void* model);

 private:
  std::vector<std::unique_ptr<MvSvcAppCtrlModel>> _models;
};

#endif
