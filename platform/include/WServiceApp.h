/* app-assist: C++ base class for a service application. */
#ifndef _WSERVICE_APP_H_
#define _WSERVICE_APP_H_

#include <app_control.h>

#include <memory>

namespace app_assist {

// Runs the platform's service-application life cycle for a subclass. All hooks are called on
// the application's main loop thread.
class WServiceApp {
 public:
  WServiceApp();
  virtual ~WServiceApp();

  // Runs the life cycle and the main loop: onStart, onCreate once, onAppControl once per launch
  // request, onTerminate once at the end. Returns the process exit status.
  int start(int argc, char* argv[]);

 protected:
  virtual void onStart(int argc, char* argv[]);
  virtual bool onCreate();
  virtual void onTerminate();
  // `request` belongs to the platform and is valid for the duration of the call.
  virtual void onAppControl(app_control_h request, bool firstLaunch);

 private:
  WServiceApp(const WServiceApp&) = delete;
  WServiceApp& operator=(const WServiceApp&) = delete;

  // The platform that start() brought up. It stays up as long as the app object lives, so that
  // the app can still release what it holds on the platform after start() has returned.
  struct Runtime;
  std::unique_ptr<Runtime> runtime_;
};

}  // namespace app_assist

#endif
