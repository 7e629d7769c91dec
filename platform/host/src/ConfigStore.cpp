#include "host/ConfigStore.h"

namespace host {

bool ConfigStore::get(const std::string& key, std::string& value) const {
  auto it = values_.find(key);
  if (it == values_.end())
    return false;
  value = it->second;
  return true;
}

void ConfigStore::set(const std::string& key, const std::string& value) {
  values_[key] = value;
  if (observer_)
    observer_(key, value);
}

void ConfigStore::setReadOnly(const std::string& key, bool readOnly) {
  if (readOnly)
    readOnly_[key] = true;
  else
    readOnly_.erase(key);
}

bool ConfigStore::isReadOnly(const std::string& key) const {
  return readOnly_.count(key) != 0;
}

}  // namespace host
