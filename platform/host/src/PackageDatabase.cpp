#include "host/PackageDatabase.h"

#include <algorithm>

namespace host {

void PackageDatabase::install(const PackageInfo& info) {
  for (PackageInfo& app : apps_) {
    if (app.appId == info.appId) {
      app = info;
      return;
    }
  }
  apps_.push_back(info);
}

bool PackageDatabase::uninstall(const std::string& appId) {
  auto it = std::find_if(apps_.begin(), apps_.end(),
                         [&](const PackageInfo& app) { return app.appId == appId; });
  if (it == apps_.end())
    return false;
  apps_.erase(it);
  return true;
}

const PackageInfo* PackageDatabase::findApp(const std::string& appId) const {
  for (const PackageInfo& app : apps_) {
    if (app.appId == appId)
      return &app;
  }
  return nullptr;
}

bool PackageDatabase::hasPackage(const std::string& pkgId) const {
  return std::any_of(apps_.begin(), apps_.end(),
                     [&](const PackageInfo& app) { return app.pkgId == pkgId; });
}

void PackageDatabase::failCall(const std::string& function, int code) {
  if (code == 0)
    failures_.erase(function);
  else
    failures_[function] = code;
}

int PackageDatabase::failure(const std::string& function) const {
  auto found = failures_.find(function);
  return found == failures_.end() ? 0 : found->second;
}

}  // namespace host
