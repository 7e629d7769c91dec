#ifndef HOST_LEFTOVERS_H
#define HOST_LEFTOVERS_H

#include <string>
#include <vector>

namespace host {

class Platform;

// Something the app still had registered with the platform when its run ended.
struct Leftover {
  std::string kind;  // "message port", "GLib source", "Ecore timer", "cloud callback", ...
  std::string name;
  // Named in the README with its reason: the app could not have withdrawn it.
  bool deliberate = false;
};

// What the running app left behind on `platform`: its message ports, GLib sources on the default
// context and Ecore timers, the cloud library's callbacks and its initialisation, and the launch
// requests it sent whose reply has not come (deliberate: the platform cannot withdraw one).
// Sources and tasks of the host's own are not counted. Main loop thread, after the app's
// terminate hook.
std::vector<Leftover> findLeftovers(Platform& platform);

}  // namespace host

#endif
