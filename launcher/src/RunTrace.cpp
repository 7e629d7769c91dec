#include "RunTrace.h"

#include <glib.h>
#include <json-glib/json-glib.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "MvText.h"
#include "RunSummary.h"
#include "host/Platform.h"

namespace launcher {

using host::BoundaryEvent;
using host::KeyValues;
using host::Platform;

namespace {

using Kind = BoundaryEvent::Kind;

// Arguments are for reading: a whole backup document in a message would make the trace as large
// as the run's data, and it would no longer be cheap to keep one per run.
const size_t kShownArgumentBytes = 200;

const char* const kLauncherTrack = "launcher";
const char* const kCloudTrack = "cloud library";

std::string valueOf(const KeyValues& data, const char* key) {
  for (const auto& entry : data) {
    if (entry.first == key)
      return entry.second;
  }
  return std::string();
}

// The store's requests have no operation, only their "req_type", and name the app by its GUID.
std::string requestName(const BoundaryEvent& request) {
  if (!request.name.empty())
    return request.name;
  const std::string type = valueOf(request.data, "req_type");
  const std::string guid = valueOf(request.data, "GUID");
  return (type.empty() ? std::string("(no operation)") : type) + (guid.empty() ? "" : " " + guid);
}

// A launch request by the last word of its operation, as the command line names them.
std::string launchName(const BoundaryEvent& launch) {
  const size_t slash = launch.name.rfind('/');
  std::string name = launch.name.empty()          ? "no operation"
                     : slash == std::string::npos ? launch.name
                                                  : launch.name.substr(slash + 1);
  if (!valueOf(launch.data, "retail-mode").empty())
    name += " +retail-mode";
  return "launch request " + std::to_string(launch.launchId) + ": " + name;
}

// A message to or from the watch face service by what it says: a notice by its text, an entry
// by the face or photo it carries.
std::string messageName(const KeyValues& bundle) {
  const std::string notice = valueOf(bundle, "message");
  if (!notice.empty())
    return notice;
  const std::string type = valueOf(bundle, "type");
  if (type == "watch")
    return "settings of " + valueOf(bundle, "pkgid");
  if (type == "image")
    return "photo " + valueOf(bundle, "file_name");
  if (type == "watch-idle-changed")
    return "idle face " + valueOf(bundle, "pkgid");
  const std::string operation = valueOf(bundle, "operation");
  return operation.empty() ? "message" : operation;
}

double microseconds(double seconds) {
  return std::round(seconds * 1e6);
}

std::string shortened(const std::string& value) {
  if (value.size() <= kShownArgumentBytes)
    return value;
  return value.substr(0, kShownArgumentBytes) + "... (" + std::to_string(value.size()) + " bytes)";
}

// One trace event before it becomes JSON; `order` keeps the record's order among equal times.
// Each boundary event gives one instant, and the ends of its arrows come right after it.
struct TraceEvent {
  double at = 0;
  double order = 0;
  char phase = 'i';  // i: instant, X: complete (with duration), s/f: flow start and end
  std::string track;
  std::string name;
  std::string category;
  double duration = 0;
  unsigned flowId = 0;
  KeyValues args;
};

class TraceBuilder {
 public:
  explicit TraceBuilder(const Platform& platform) : self_(platform.selfAppId()) {
    track(kLauncherTrack);
    track(self_);
  }

  void add(const BoundaryEvent& event) {
    KeyValues args = event.data;
    switch (event.kind) {
      case Kind::kLaunchRequest:
        args.emplace_back("launch", std::to_string(event.launchId));
        delivery(event.at, kLauncherTrack, self_, launchName(event), "launch", args);
        break;
      case Kind::kReplyToLauncher:
        args.emplace_back("result", std::to_string(event.code));
        delivery(event.at, self_, kLauncherTrack,
                 "reply to launch request " + std::to_string(event.launchId) + ": " +
                     replyResultName(event.code),
                 "launch", args);
        break;
      case Kind::kAppControlSent:
        if (!event.name.empty())
          args.emplace_back("operation", event.name);
        args.emplace_back("send result", std::to_string(event.code));
        if (event.code != 0) {
          instant(event.at, self_,
                  requestName(event) + " to " + event.peer +
                      " (not sent: " + std::to_string(event.code) + ")",
                  "app-control", args);
          break;
        }
        delivery(event.at, self_, event.peer, requestName(event), "app-control", args);
        requests_[event.peer].push_back(event);
        break;
      case Kind::kAppControlReply:
        args.emplace_back("result", std::to_string(event.code));
        reply(event, args);
        break;
      case Kind::kMessageSent:
        args.emplace_back("port", event.name);
        args.emplace_back("send result", std::to_string(event.code));
        if (event.code != 0)
          instant(event.at, self_,
                  messageName(event.data) + " (refused: " + std::to_string(event.code) + ")",
                  "message", args);
        else
          delivery(event.at, self_, event.peer, messageName(event.data), "message", args);
        break;
      case Kind::kMessageDelivered:
      case Kind::kMessageDropped:
        // Recorded as it reaches the service: the instant is the service's, the arrow the peer's.
        args.emplace_back("port", event.name);
        instant(event.at, self_,
                messageName(event.data) +
                    (event.kind == Kind::kMessageDropped ? " (dropped: no such port)" : ""),
                "message", args);
        arrow(event.at, event.peer, self_, events_.back().name, "message");
        break;
      case Kind::kExitRequested:
        instant(event.at, self_, "service_app_exit", "life cycle", args);
        break;
      case Kind::kCloudCallback:
        args.emplace_back("success", std::to_string(event.code));
        // Only a completion carries a success.
        delivery(event.at, kCloudTrack, self_,
                 "calls " + event.name +
                     (g_str_has_suffix(event.name.c_str(), " completed")
                          ? std::string(event.code ? ": succeeded" : ": failed")
                          : std::string()),
                 "cloud", args);
        break;
      case Kind::kCloudAnswer:
        args.emplace_back("success", std::to_string(event.code));
        delivery(event.at, self_, kCloudTrack,
                 "answers " + event.name + (event.code ? "" : ": false"), "cloud", args);
        break;
    }
  }

  std::string json() {
    std::sort(events_.begin(), events_.end(), [](const TraceEvent& a, const TraceEvent& b) {
      return a.at < b.at || (a.at == b.at && a.order < b.order);
    });
    g_autoptr(JsonBuilder) builder = json_builder_new();
    json_builder_begin_object(builder);
    json_builder_set_member_name(builder, "displayTimeUnit");
    json_builder_add_string_value(builder, "ms");
    json_builder_set_member_name(builder, "traceEvents");
    json_builder_begin_array(builder);
    for (size_t i = 0; i < tracks_.size(); ++i) {
      TraceEvent name;
      name.phase = 'M';
      name.track = tracks_[i];
      name.name = "thread_name";
      name.args = {{"name", tracks_[i]}};
      emit(builder, name);
    }
    for (const TraceEvent& event : events_)
      emit(builder, event);
    json_builder_end_array(builder);
    json_builder_end_object(builder);
    g_autoptr(JsonNode) root = json_builder_get_root(builder);
    g_autoptr(JsonGenerator) generator = json_generator_new();
    json_generator_set_root(generator, root);
    gsize length = 0;
    g_autofree char* text = json_generator_to_data(generator, &length);
    return std::string(text, length) + "\n";
  }

 private:
  int track(const std::string& name) {
    auto found = std::find(tracks_.begin(), tracks_.end(), name);
    if (found != tracks_.end())
      return static_cast<int>(found - tracks_.begin()) + 1;
    tracks_.push_back(name);
    return static_cast<int>(tracks_.size());
  }

  TraceEvent& push(double at, const std::string& trackName, char phase) {
    track(trackName);
    TraceEvent event;
    event.at = at;
    event.order = static_cast<double>(events_.size());
    event.phase = phase;
    event.track = trackName;
    events_.push_back(std::move(event));
    return events_.back();
  }

  void instant(double at,
               const std::string& trackName,
               const std::string& name,
               const char* category,
               const KeyValues& args) {
    TraceEvent& event = push(at, trackName, 'i');
    event.name = name;
    event.category = category;
    event.args = args;
  }

  // An arrow named after what it carries, from `from` to `to` at one time: the platform records
  // each delivery once, as it happens. `to` gets a track now, so tracks appear in the order
  // apps meet.
  void arrow(double at,
             const std::string& from,
             const std::string& to,
             const std::string& name,
             const char* category) {
    track(to);
    const unsigned id = ++flows_;
    for (const auto& end : {std::make_pair('s', from), std::make_pair('f', to)}) {
      TraceEvent& event = push(at, end.second, end.first);
      event.name = name;
      event.category = category;
      event.flowId = id;
    }
  }

  // The sender's instant, then its arrow to the receiver.
  void delivery(double at,
                const std::string& from,
                const std::string& to,
                const std::string& name,
                const char* category,
                const KeyValues& args) {
    instant(at, from, name, category, args);
    arrow(at, from, to, name, category);
  }

  // A peer's reply answers its oldest open request: the peer's track shows the wait between.
  void reply(const BoundaryEvent& event, const KeyValues& args) {
    std::deque<BoundaryEvent>& open = requests_[event.peer];
    if (!open.empty()) {
      const BoundaryEvent request = open.front();
      open.pop_front();
      TraceEvent& wait = push(request.at, event.peer, 'X');
      wait.name = "waits on " + requestName(request);
      wait.category = "app-control";
      wait.duration = event.at - request.at;
      wait.args = request.data;
    }
    const std::string error = valueOf(event.data, "errorMsg");
    delivery(event.at, event.peer, self_,
             std::string("reply: ") + replyResultName(event.code) +
                 (error.empty() ? "" : " (" + error + ")"),
             "app-control", args);
  }

  void emit(JsonBuilder* builder, const TraceEvent& event) {
    json_builder_begin_object(builder);
    json_builder_set_member_name(builder, "ph");
    json_builder_add_string_value(builder, std::string(1, event.phase).c_str());
    mvJsonAddText(builder, "name", event.name);
    if (!event.category.empty()) {
      json_builder_set_member_name(builder, "cat");
      json_builder_add_string_value(builder, event.category.c_str());
    }
    json_builder_set_member_name(builder, "pid");
    json_builder_add_int_value(builder, kTraceProcessId);
    json_builder_set_member_name(builder, "tid");
    json_builder_add_int_value(builder, track(event.track));
    json_builder_set_member_name(builder, "ts");
    json_builder_add_double_value(builder, microseconds(event.at));
    if (event.phase == 'X') {
      json_builder_set_member_name(builder, "dur");
      json_builder_add_double_value(
          builder, microseconds(event.at + event.duration) - microseconds(event.at));
    }
    if (event.phase == 'i') {
      json_builder_set_member_name(builder, "s");
      json_builder_add_string_value(builder, "t");
    }
    if (event.phase == 's' || event.phase == 'f') {
      json_builder_set_member_name(builder, "id");
      json_builder_add_int_value(builder, event.flowId);
      if (event.phase == 'f') {
        // Binds the arrow to the event at this time on this track, not to the next one.
        json_builder_set_member_name(builder, "bp");
        json_builder_add_string_value(builder, "e");
      }
    }
    if (!event.args.empty()) {
      json_builder_set_member_name(builder, "args");
      json_builder_begin_object(builder);
      std::map<std::string, std::string> seen;
      for (const auto& arg : event.args)
        seen[arg.first] = shortened(arg.second);
      for (const auto& arg : seen)
        mvJsonAddText(builder, mvShownText(arg.first).c_str(), arg.second);
      json_builder_end_object(builder);
    }
    json_builder_end_object(builder);
  }

  std::string self_;
  std::vector<std::string> tracks_;  // thread ID = index + 1
  std::vector<TraceEvent> events_;
  std::map<std::string, std::deque<BoundaryEvent>> requests_;  // open ones by peer, oldest first
  unsigned flows_ = 0;
};

}  // namespace

std::string runTraceJson(const Platform& platform) {
  TraceBuilder builder(platform);
  for (const BoundaryEvent& event : platform.record().events())
    builder.add(event);
  return builder.json();
}

void writeRunTrace(const Platform& platform, const LaunchOptions& options, RunReport& report) {
  if (options.tracePath.empty())
    return;
  const std::string trace = runTraceJson(platform);
  g_autoptr(GError) error = nullptr;
  if (!g_file_set_contents(options.tracePath.c_str(), trace.data(),
                           static_cast<gssize>(trace.size()), &error))
    report.failure("trace", std::string("cannot write the trace: ") + error->message);
  report.set("trace", jsonString(options.tracePath));
}

}  // namespace launcher
