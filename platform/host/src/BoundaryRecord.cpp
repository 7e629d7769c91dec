#include "host/BoundaryRecord.h"

namespace host {

const char* kindName(BoundaryEvent::Kind kind) {
  switch (kind) {
    case BoundaryEvent::Kind::kLaunchRequest:
      return "launch-request";
    case BoundaryEvent::Kind::kReplyToLauncher:
      return "reply-to-launcher";
    case BoundaryEvent::Kind::kAppControlSent:
      return "app-control-sent";
    case BoundaryEvent::Kind::kAppControlReply:
      return "app-control-reply";
    case BoundaryEvent::Kind::kMessageSent:
      return "message-sent";
    case BoundaryEvent::Kind::kMessageDelivered:
      return "message-delivered";
    case BoundaryEvent::Kind::kMessageDropped:
      return "message-dropped";
    case BoundaryEvent::Kind::kExitRequested:
      return "exit-requested";
    case BoundaryEvent::Kind::kCloudCallback:
      return "cloud-callback";
    case BoundaryEvent::Kind::kCloudAnswer:
      return "cloud-answer";
  }
  return "unknown";
}

std::vector<BoundaryEvent> BoundaryRecord::ofKind(BoundaryEvent::Kind kind) const {
  std::vector<BoundaryEvent> result;
  for (const BoundaryEvent& event : events_) {
    if (event.kind == kind)
      result.push_back(event);
  }
  return result;
}

}  // namespace host
