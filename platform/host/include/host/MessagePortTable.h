#ifndef HOST_MESSAGE_PORT_TABLE_H
#define HOST_MESSAGE_PORT_TABLE_H

#include <message_port.h>

#include <map>
#include <string>
#include <vector>

namespace host {

// The trusted local ports that the running app registered, by name.
class MessagePortTable {
 public:
  struct Port {
    int id;
    std::string name;
    message_port_trusted_message_cb callback;
    void* userData;
  };

  // Returns the port's ID. A name registered again gets the new callback, and keeps its ID
  // unless `newId`: then the old ID no longer names the port.
  int registerPort(const std::string& name,
                   message_port_trusted_message_cb callback,
                   void* userData,
                   bool newId = false);
  bool unregisterPort(int id);
  const Port* findByName(const std::string& name) const;
  size_t size() const { return ports_.size(); }
  std::vector<std::string> names() const;

 private:
  std::map<std::string, Port> ports_;
  int nextId_ = 1;
};

}  // namespace host

#endif
