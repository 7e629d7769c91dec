#ifndef HOST_PACKAGE_DATABASE_H
#define HOST_PACKAGE_DATABASE_H

#include <map>
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

  // Test seam: the package-information call named `function` fails with `code` (0: it works).
  void failCall(const std::string& function, int code);
  int failure(const std::string& function) const;

 private:
  std::vector<PackageInfo> apps_;
  std::map<std::string, int> failures_;
};

}  // namespace host

#endif
