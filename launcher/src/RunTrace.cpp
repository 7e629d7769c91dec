#include "RunTrace.h"

#include <glib.h>
#include <json-glib/json-glib.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "MvJsonText.h"
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

// The store's requests have no operation, only their "req_type".
std::string requestName(const BoundaryEvent& request) {
  if (!request.name.empty())
    return request.name;
  for (const auto& extra : request.data) {
    if (extra.first == "req_type")
      return extra.second;
  }
  return "(no operation)";
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
      case Kind::kLaunchRequest: {
        args.emplace_back("launch", std::to_string(event.launchId));
        const std::string name = "launch request " + std::to_string(event.launchId);
        instant(event.at, kLauncherTrack, name, "launch", args);
        launches_[event.launchId] = flow(event.at, kLauncherTrack, self_, "launch");
        break;
      }
      case Kind::kReplyToLauncher: {
        args.emplace_back("result", std::to_string(event.code));
        instant(event.at, self_, "reply to launch request " + std::to_string(event.launchId),
                "launch", args);
        auto pending = launches_.find(event.launchId);
        if (pending != launches_.end())
          arrive(event.at, self_, pending->second, "launch");
        break;
      }
      case Kind::kAppControlSent:
        if (!event.name.empty())
          args.emplace_back("operation", event.name);
        args.emplace_back("send result", std::to_string(event.code));
        instant(event.at, self_, "request to " + event.peer, "app-control", args);
        // Its arrow is drawn when the reply comes: a request never answered has none.
        track(event.peer);
        if (event.code == 0)
          requests_[event.peer].push_back({events_.back().order, event});
        break;
      case Kind::kAppControlReply:
        args.emplace_back("result", std::to_string(event.code));
        reply(event, args);
        break;
      case Kind::kMessageSent:
        args.emplace_back("port", event.name);
        args.emplace_back("send result", std::to_string(event.code));
        instant(event.at, self_, "message to " + event.peer, "message", args);
        arrive(event.at, event.peer, flow(event.at, self_, event.peer, "message"), "message");
        break;
      case Kind::kMessageDelivered:
      case Kind::kMessageDropped: {
        const bool dropped = event.kind == Kind::kMessageDropped;
        args.emplace_back("port", event.name);
        instant(event.at, self_,
                std::string(dropped ? "message dropped from " : "message from ") + event.peer,
                "message", args);
        arrive(event.at, self_, flow(event.at, event.peer, self_, "message"), "message");
        break;
      }
      case Kind::kExitRequested:
        instant(event.at, self_, "service_app_exit", "life cycle", args);
        break;
      case Kind::kCloudCallback: {
        args.emplace_back("success", std::to_string(event.code));
        instant(event.at, kCloudTrack, "calls " + event.name, "cloud", args);
        arrive(event.at, self_, flow(event.at, kCloudTrack, self_, "cloud"), "cloud");
        break;
      }
      case Kind::kCloudAnswer: {
        args.emplace_back("success", std::to_string(event.code));
        instant(event.at, self_, "answers " + event.name, "cloud", args);
        arrive(event.at, kCloudTrack, flow(event.at, self_, kCloudTrack, "cloud"), "cloud");
        break;
      }
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
  struct Request {
    double order;  // of its instant, which its arrow's start follows
    BoundaryEvent event;
  };

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

  // Starts an arrow on `from`; `to` gets a track now, so tracks appear in the order apps meet.
  unsigned flow(double at, const std::string& from, const std::string& to, const char* category) {
    track(to);
    TraceEvent& event = push(at, from, 's');
    event.name = category;
    event.category = category;
    event.flowId = ++flows_;
    return event.flowId;
  }

  void arrive(double at, const std::string& trackName, unsigned flowId, const char* category) {
    TraceEvent& event = push(at, trackName, 'f');
    event.name = category;
    event.category = category;
    event.flowId = flowId;
  }

  // A peer's reply answers its oldest open request: the peer's track shows the wait between.
  void reply(const BoundaryEvent& event, const KeyValues& args) {
    instant(event.at, event.peer, "reply", "app-control", args);
    std::deque<Request>& open = requests_[event.peer];
    if (!open.empty()) {
      const Request request = open.front();
      open.pop_front();
      const unsigned id = flow(request.event.at, self_, event.peer, "app-control");
      events_.back().order = request.order + 0.5;
      TraceEvent& wait = push(request.event.at, event.peer, 'X');
      wait.order = request.order + 0.75;
      wait.name = "waits on " + requestName(request.event);
      wait.category = "app-control";
      wait.duration = event.at - request.event.at;
      wait.args = request.event.data;
      arrive(event.at, event.peer, id, "app-control");
    }
    arrive(event.at, self_, flow(event.at, event.peer, self_, "app-control"), "app-control");
  }

  void emit(JsonBuilder* builder, const TraceEvent& event) {
    json_builder_begin_object(builder);
    json_builder_set_member_name(builder, "ph");
    json_builder_add_string_value(builder, std::string(1, event.phase).c_str());
    mvAddTextMember(builder, "name", event.name);
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
        mvAddTextMember(builder, mvRepairedUtf8(arg.first).c_str(), arg.second);
      json_builder_end_object(builder);
    }
    json_builder_end_object(builder);
  }

  std::string self_;
  std::vector<std::string> tracks_;  // thread ID = index + 1
  std::vector<TraceEvent> events_;
  std::map<unsigned, unsigned> launches_;                // launch ID -> its flow
  std::map<std::string, std::deque<Request>> requests_;  // by peer, oldest first
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
