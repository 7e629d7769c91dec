#ifndef HOST_CONFIG_STORE_H
#define HOST_CONFIG_STORE_H

#include <functional>
#include <map>
#include <string>

namespace host {

// The vconf keys of the watch that hold strings.
class ConfigStore {
 public:
  bool get(const std::string& key, std::string& value) const;
  void set(const std::string& key, const std::string& value);
  // Told of every value set from now on (null: nobody).
  using Observer = std::function<void(const std::string& key, const std::string& value)>;
  void setObserver(Observer observer) { observer_ = std::move(observer); }
  // A key whose writes fail, as on a read-only or locked key.
  void setReadOnly(const std::string& key, bool readOnly);
  bool isReadOnly(const std::string& key) const;
  const std::map<std::string, std::string>& values() const { return values_; }

 private:
  std::map<std::string, std::string> values_;
  std::map<std::string, bool> readOnly_;
  Observer observer_;
};

}  // namespace host

#endif
