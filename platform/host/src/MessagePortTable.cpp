#include "host/MessagePortTable.h"

namespace host {

int MessagePortTable::registerPort(const std::string& name,
                                   message_port_trusted_message_cb callback,
                                   void* userData,
                                   bool newId) {
  auto it = ports_.find(name);
  if (it != ports_.end()) {
    it->second.callback = callback;
    it->second.userData = userData;
    if (newId)
      it->second.id = nextId_++;
    return it->second.id;
  }
  int id = nextId_++;
  ports_.emplace(name, Port{id, name, callback, userData});
  return id;
}

bool MessagePortTable::unregisterPort(int id) {
  for (auto it = ports_.begin(); it != ports_.end(); ++it) {
    if (it->second.id == id) {
      ports_.erase(it);
      return true;
    }
  }
  return false;
}

const MessagePortTable::Port* MessagePortTable::findByName(const std::string& name) const {
  auto it = ports_.find(name);
  return it == ports_.end() ? nullptr : &it->second;
}

std::vector<std::string> MessagePortTable::names() const {
  std::vector<std::string> result;
  for (const auto& port : ports_)
    result.push_back(port.first);
  return result;
}

}  // namespace host
