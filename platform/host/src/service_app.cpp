// The service application life cycle's exit request on the host.
#include <service_app.h>

#include "host/MainLoop.h"
#include "host/Platform.h"

extern "C" {

void service_app_exit(void) {
  if (host::Platform* platform = host::Platform::current())
    platform->requestExit();
  else
    host::MainLoop::quit();
}

}  // extern "C"
