#ifndef HOST_PACKAGE_DATABASE_H
#define HOST_PACKAGE_DATABASE_H

#include <string>
#include <vector>

namespace host {

// One installed application.
struct PackageInfo {
  std::string pkgId;
  std::string appId;
  std::string component;  // "svcapp", "uiapp", "watchapp", "widgetapp"
  bool preload = false;   // shipped with the firmware, not downloaded
};

// The watch's installed applications, in installation order.
class PackageDatabase {
 public:
  // Installs `info`, replacing an app with the same app ID.
  void install(const PackageInfo& info);
  bool uninstall(const std::string& appId);
  const PackageInfo* findApp(const std::string& appId) const;
  bool hasPackage(const std::string& pkgId) const;
  const std::vector<PackageInfo>& apps() const { return apps_; }

 private:
  std::vector<PackageInfo> apps_;
};

}  // namespace host

#endif
