#include "MvSvcAppCtrlRequests.h"

#include <algorithm>

MvSvcAppCtrlModel* MvSvcAppCtrlRequests::add(std::unique_ptr<MvSvcAppCtrlModel> model) {
  _models.push_back(std::move(model));
  return _models.back().get();
}

void MvSvcAppCtrlRequests::release(void* model) {
  auto found = std::find_if(_models.begin(), _models.end(),
                            [model](const auto& pending) { return pending.get() == model; });
  if (found != _models.end())
    _models.erase(found);
}
