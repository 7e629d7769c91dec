// Linked into the service binary: makes WServiceApp::start() launch the service on the watch the
// command line names.
#include "MvWatchNames.h"
#include "launcher/Launcher.h"

namespace {

launcher::Launcher g_launcher(MV_SERVICE_APP_ID);

const bool g_registered = [] {
  host::setAppLauncher(&g_launcher);
  return true;
}();

}  // namespace
