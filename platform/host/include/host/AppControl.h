#ifndef HOST_APP_CONTROL_H
#define HOST_APP_CONTROL_H

#include <app_control.h>

#include <string>

#include "host/BoundaryRecord.h"

// The host's app-control handle. Created and destroyed only through the app_control_* calls.
struct app_control_s {
  std::string appId;
  std::string operation;  // empty: none set
  bool hasOperation = false;
  host::KeyValues extras;  // in insertion order; keys are unique
  // Nonzero on a launch request that the launcher delivered, and on its clones: the reply to
  // it goes back to the launcher.
  unsigned launchId = 0;
};

namespace host {

// Handles created and not yet destroyed, over the whole process: lets tests prove releases.
int liveAppControlCount();

// A new handle that is a copy of `source`, for the platform's own keeping.
app_control_h cloneAppControl(const app_control_s& source);

const std::string* findExtra(const app_control_s& handle, const std::string& key);

}  // namespace host

#endif
