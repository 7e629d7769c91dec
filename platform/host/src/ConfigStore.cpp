#include "host/ConfigStore.h"

namespace host {

bool ConfigStore::get(const std::string& key, std::string& value) const {
  auto it = values_.find(key);
  if (it == values_.end())
    return false;
  value = it->second;
  return true;
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
