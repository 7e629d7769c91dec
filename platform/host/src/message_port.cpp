// The platform's trusted message ports on the emulated watch.
#include <message_port.h>

#include <algorithm>
#include <memory>

#include "host/Bundle.h"
#include "host/EmulatedApp.h"
#include "host/HostLog.h"
#include "host/Platform.h"

using host::BoundaryEvent;
using host::Platform;

extern "C" {

int message_port_register_trusted_local_port(const char* local_port,
                                             message_port_trusted_message_cb callback,
                                             void* user_data) {
  if (!local_port || local_port[0] == '\0' || !callback)
    return MESSAGE_PORT_ERROR_INVALID_PARAMETER;
  Platform* platform = Platform::current();
  if (!platform)
    return MESSAGE_PORT_ERROR_IO_ERROR;
  return platform->ports().registerPort(
      local_port, callback, user_data,
      platform->personality().portReRegistration == host::Personality::PortReRegistration::kNewId);
}

int message_port_unregister_trusted_local_port(int trusted_local_port_id) {
  if (trusted_local_port_id <= 0)
    return MESSAGE_PORT_ERROR_INVALID_PARAMETER;
  Platform* platform = Platform::current();
  if (!platform)
    return MESSAGE_PORT_ERROR_IO_ERROR;
  return platform->ports().unregisterPort(trusted_local_port_id)
             ? MESSAGE_PORT_ERROR_NONE
             : MESSAGE_PORT_ERROR_PORT_NOT_FOUND;
}

int message_port_send_trusted_message(const char* remote_app_id,
                                      const char* remote_port,
                                      bundle* message) {
  if (!remote_app_id || !remote_port || !message)
    return MESSAGE_PORT_ERROR_INVALID_PARAMETER;
  Platform* platform = Platform::current();
  if (!platform)
    return MESSAGE_PORT_ERROR_IO_ERROR;

  std::shared_ptr<host::EmulatedApp> app;
  int result = MESSAGE_PORT_ERROR_NONE;
  if (platform->packages().findApp(remote_app_id))
    app = platform->findApp(remote_app_id);
  if (!app) {
    result = MESSAGE_PORT_ERROR_PORT_NOT_FOUND;
  } else {
    std::vector<std::string> ports = app->localPorts();
    if (std::find(ports.begin(), ports.end(), remote_port) == ports.end())
      result = MESSAGE_PORT_ERROR_PORT_NOT_FOUND;
  }
  if (result != MESSAGE_PORT_ERROR_NONE) {
    host::logWarn(host::kHostLogTag, "message to '%s' on port '%s' refused: nobody listens there",
                  remote_app_id, remote_port);
  } else {
    result = platform->checkMessageSize(platform->selfAppId(), remote_port, message->keyValues());
  }
  platform->addEvent(BoundaryEvent::Kind::kMessageSent, remote_app_id, remote_port,
                     message->keyValues(), result);
  if (result != MESSAGE_PORT_ERROR_NONE)
    return result;

  std::string port = remote_port;
  std::string from = platform->selfAppId();
  host::KeyValues entries = message->keyValues();
  platform->postToPeer(
      [app, port, from, entries] {
        MvBundlePtr copy = host::makeBundle(entries);
        app->onMessage(port, from, copy.get());
      },
      "message:" + from + "->" + port);
  return MESSAGE_PORT_ERROR_NONE;
}

}  // extern "C"
