#include "host/AppLauncher.h"

namespace host {

namespace {

AppLauncher* g_launcher = nullptr;

}  // namespace

void setAppLauncher(AppLauncher* launcher) {
  g_launcher = launcher;
}

AppLauncher* appLauncher() {
  return g_launcher;
}

}  // namespace host
