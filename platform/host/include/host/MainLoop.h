#ifndef HOST_MAIN_LOOP_H
#define HOST_MAIN_LOOP_H

namespace host {

// The application main loop: Ecore's loop with GLib's default context dispatched inside it, so
// GLib sources (the platform's deliveries, idles, timeouts) run in the Ecore loop and a nested
// g_main_loop_run() on the default context dispatches every platform delivery. Ecore timers do
// not fire inside such a nested GLib loop. Initialises Ecore for its lifetime; one at a time,
// on the main thread.
class MainLoop {
 public:
  MainLoop();
  ~MainLoop();

  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  // Runs until quit() (or service_app_exit()).
  void run();
  static void quit();
  static bool isRunning();
};

}  // namespace host

#endif
