#ifndef HOST_BOUNDARY_RECORD_H
#define HOST_BOUNDARY_RECORD_H

#include <string>
#include <utility>
#include <vector>

namespace host {

using KeyValues = std::vector<std::pair<std::string, std::string>>;

// One thing that crossed the platform boundary of the running app.
struct BoundaryEvent {
  enum class Kind {
    kLaunchRequest,    // launcher -> app: name = operation, data = extras
    kReplyToLauncher,  // app -> launcher: code = result, data = reply extras
    kAppControlSent,  // app -> peer app `peer`: name = operation, data = extras, code = send result
    kAppControlReply,   // peer app -> app: code = result, data = reply extras
    kMessageSent,       // app -> peer port: name = port, data = bundle, code = send result
    kMessageDelivered,  // peer -> app's local port `name`: data = bundle
    kMessageDropped,    // peer -> app: code 0, no local port `name`; else the send's refusal
    kExitRequested,     // service_app_exit()
    kCloudCallback,  // cloud library -> app's callback `name`: code = success when it carries one
    kCloudAnswer,    // app -> cloud library: name = the answer, code = its success
  };

  Kind kind;
  double at;         // seconds since the platform started
  std::string peer;  // the other app's ID, when there is one
  std::string name;
  KeyValues data;
  int code = 0;
  unsigned launchId = 0;  // the launch request concerned, for kLaunchRequest and kReplyToLauncher
};

const char* kindName(BoundaryEvent::Kind kind);

// Every event in order of occurrence. Main loop thread only.
class BoundaryRecord {
 public:
  void add(BoundaryEvent event) { events_.push_back(std::move(event)); }
  const std::vector<BoundaryEvent>& events() const { return events_; }
  std::vector<BoundaryEvent> ofKind(BoundaryEvent::Kind kind) const;
  void clear() { events_.clear(); }

 private:
  std::vector<BoundaryEvent> events_;
};

}  // namespace host

#endif
