#include "RunSummary.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <string>

#include "MvHandles.h"
#include "MvText.h"
#include "RunTrace.h"
#include "host/DeliverySchedule.h"
#include "host/Leftovers.h"
#include "host/Platform.h"

namespace launcher {

using host::BoundaryEvent;
using host::DeliverySchedule;
using host::Leftover;
using host::Platform;

namespace {

using Kind = BoundaryEvent::Kind;

std::string describeRequest(const BoundaryEvent& event) {
  std::string text = event.name.empty() ? std::string("(no operation)") : event.name;
  for (const auto& extra : event.data)
    text += " " + extra.first + "=" + extra.second;
  return text;
}

std::string seconds(double at) {
  char text[32];
  g_snprintf(text, sizeof text, "%.2f s", at);
  return text;
}

// Each launch request and the replies it got; a request answered twice is a failure.
void reportRequests(Platform& platform, RunReport& report) {
  JsonArray* requests = json_array_new();
  std::map<unsigned, JsonObject*> byLaunch;
  for (const BoundaryEvent& event : platform.record().ofKind(Kind::kLaunchRequest)) {
    report.line("request", std::to_string(event.launchId) + " at " + seconds(event.at) + ": " +
                               describeRequest(event));
    JsonObject* request = json_object_new();
    json_object_set_int_member(request, "id", event.launchId);
    json_object_set_double_member(request, "at", event.at);
    mvJsonSetText(request, "operation", event.name);
    JsonObject* extras = json_object_new();
    for (const auto& extra : event.data)
      mvJsonSetText(extras, mvShownText(extra.first).c_str(), extra.second);
    json_object_set_object_member(request, "extras", extras);
    json_object_set_null_member(request, "reply");
    byLaunch[event.launchId] = request;
    json_array_add_object_element(requests, request);
  }
  std::map<unsigned, int> replies;
  for (const BoundaryEvent& event : platform.record().ofKind(Kind::kReplyToLauncher)) {
    report.line("reply", std::to_string(event.launchId) + " at " + seconds(event.at) + ": " +
                             replyResultName(event.code));
    if (++replies[event.launchId] == 2)
      report.failure("reply", "launch request " + std::to_string(event.launchId) +
                                  " was answered more than once");
    auto request = byLaunch.find(event.launchId);
    if (request == byLaunch.end() || replies[event.launchId] > 1)
      continue;
    JsonObject* reply = json_object_new();
    json_object_set_double_member(reply, "at", event.at);
    json_object_set_string_member(reply, "result", replyResultName(event.code));
    json_object_set_object_member(request->second, "reply", reply);
  }
  if (replies.empty())
    report.line("replies", "none to the launcher");
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, requests);
  report.set("requests", node);
}

// What a run that did not end by itself was still waiting for, read off the boundary record.
void reportWaits(Platform& platform, RunReport& report) {
  std::map<std::string, int> pendingReplies;
  for (const BoundaryEvent& event : platform.record().events()) {
    if (event.kind == Kind::kAppControlSent && event.code == APP_CONTROL_ERROR_NONE)
      ++pendingReplies[event.peer];
    else if (event.kind == Kind::kAppControlReply)
      --pendingReplies[event.peer];
  }
  JsonArray* pending = json_array_new();
  auto wait = [&](const std::string& text) {
    report.line("waiting", text);
    json_array_add_string_element(pending, text.c_str());
  };
  for (const auto& peer : pendingReplies) {
    if (peer.second > 0)
      wait(std::to_string(peer.second) + " app-control repl" + (peer.second == 1 ? "y" : "ies") +
           " from " + peer.first);
  }
  for (const std::string& port : platform.ports().names())
    wait("messages on the local port " + port);
  if (json_array_get_length(pending) == 0)
    report.line("waiting", "for nothing: no reply or message was due");
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, pending);
  report.set("pending", node);
}

// What the app left registered when it had ended by itself or been ended; a deliberate leftover
// is named, the others are failures.
void reportLeftovers(const std::vector<Leftover>& leftovers, RunReport& report) {
  JsonArray* list = json_array_new();
  for (const Leftover& leftover : leftovers) {
    const std::string text = leftover.kind + " " + leftover.name;
    if (leftover.deliberate)
      report.line("leftover", text + " (deliberate: a launch request cannot be withdrawn)");
    else
      report.failure("leftover", "the service ended with a " + text + " still registered");
    JsonObject* entry = json_object_new();
    json_object_set_string_member(entry, "kind", leftover.kind.c_str());
    json_object_set_member(entry, "name", jsonString(leftover.name));
    json_object_set_boolean_member(entry, "deliberate", leftover.deliberate);
    json_array_add_object_element(list, entry);
  }
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, list);
  report.set("leftovers", node);
}

// A digest of everything that crossed the boundary, and when: two runs of one schedule agree,
// wherever their watch and cloud lie.
std::string traceDigest(Platform& platform, const LaunchOptions& options) {
  guint64 hash = 14695981039346656037ull;
  auto mixBytes = [&hash](const std::string& text) {
    for (unsigned char c : text)
      hash = (hash ^ c) * 1099511628211ull;
    hash = (hash ^ 0xFF) * 1099511628211ull;
  };
  const std::pair<std::string, const char*> places[] = {{options.deviceDir, "DEVICE"},
                                                        {options.cloudDir, "CLOUD"}};
  auto mix = [&](std::string text) {
    for (const auto& place : places) {
      for (size_t at = place.first.empty() ? std::string::npos : text.find(place.first);
           at != std::string::npos; at = text.find(place.first, at + 1))
        text.replace(at, place.first.size(), place.second);
    }
    mixBytes(text);
  };
  for (const BoundaryEvent& event : platform.record().events()) {
    mix(std::to_string(static_cast<int>(event.kind)));
    mix(std::to_string(static_cast<long long>(event.at * 1000 + 0.5)));
    mix(event.peer);
    mix(event.name);
    mix(std::to_string(event.code) + "/" + std::to_string(event.launchId));
    for (const auto& entry : event.data) {
      mix(entry.first);
      mix(entry.second);
    }
  }
  char text[17];
  g_snprintf(text, sizeof text, "%016" G_GINT64_MODIFIER "x", hash);
  return text;
}

void reportSchedule(Platform& platform, const LaunchOptions& options, RunReport& report) {
  const DeliverySchedule* schedule = platform.schedule();
  if (!schedule)
    return;
  const std::string trace = traceDigest(platform, options);
  report.line("schedule",
              "seed " + std::to_string(schedule->seed()) + " on a simulated clock, trace " + trace);
  JsonObject* object = json_object_new();
  json_object_set_int_member(object, "seed", static_cast<gint64>(schedule->seed()));
  json_object_set_string_member(object, "trace", trace.c_str());
  // What crossed the boundary, without the data it carried: enough to check a run's order.
  JsonArray* events = json_array_new();
  for (const BoundaryEvent& event : platform.record().events()) {
    JsonObject* entry = json_object_new();
    json_object_set_double_member(entry, "at", event.at);
    json_object_set_string_member(entry, "kind", kindName(event.kind));
    mvJsonSetText(entry, "peer", event.peer);
    mvJsonSetText(entry, "name", event.name);
    json_object_set_int_member(entry, "code", event.code);
    if (event.launchId)
      json_object_set_int_member(entry, "launch", event.launchId);
    for (const auto& pair : event.data) {
      if (pair.first == "message")
        mvJsonSetText(entry, "message", pair.second);
    }
    json_array_add_object_element(events, entry);
  }
  json_object_set_array_member(object, "events", events);
  JsonNode* node = json_node_new(JSON_NODE_OBJECT);
  json_node_take_object(node, object);
  report.set("schedule", node);
}

// "SIGHUP", "SIGRTMIN+3".
std::string signalName(int signal) {
  if (const char* abbreviation = sigabbrev_np(signal))
    return std::string("SIG") + abbreviation;
  if (signal >= SIGRTMIN && signal <= SIGRTMAX)
    return "SIGRTMIN+" + std::to_string(signal - SIGRTMIN);
  return "signal " + std::to_string(signal);
}

int statusOf(const RunOutcome& outcome, const RunReport& report) {
  if (outcome.signal)
    return kStatusSignalBase + outcome.signal;
  if (!outcome.endedBySelf)
    return kStatusDeadline;
  return report.failed() ? kStatusFlowFailed : kStatusSucceeded;
}

void reportEnd(const LaunchOptions& options, const RunOutcome& outcome, RunReport& report) {
  JsonObject* ended = json_object_new();
  json_object_set_double_member(ended, "at", outcome.endedAt);
  if (outcome.signal) {
    const std::string name = signalName(outcome.signal);
    report.line("ended", "interrupted by " + name + " at " + seconds(outcome.endedAt));
    json_object_set_string_member(ended, "by", "signal");
    json_object_set_string_member(ended, "signal", name.c_str());
  } else if (outcome.endedBySelf) {
    report.line("ended", "by the service itself at " + seconds(outcome.endedAt));
    json_object_set_string_member(ended, "by", "service");
  } else {
    char deadline[32];
    g_snprintf(deadline, sizeof deadline, "%g s", options.deadlineSeconds);
    report.line("ended",
                std::string("by the deadline of ") + deadline + ": the service was still running");
    json_object_set_string_member(ended, "by", "deadline");
  }
  json_object_set_boolean_member(ended, "inside_nested_loop", outcome.insideNestedLoop);
  JsonNode* node = json_node_new(JSON_NODE_OBJECT);
  json_node_take_object(node, ended);
  report.set("ended", node);
}

// Appended, never followed through a link: the watch's log directory is the user's.
void appendToLog(const std::string& deviceDir, const std::string& text) {
  g_autofree char* path = g_build_filename(deviceDir.c_str(), "log", "summary.log", nullptr);
  MvFd fd(open(path, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (fd.get() < 0)
    return;
  ssize_t ignored = write(fd.get(), text.data(), text.size());
  (void)ignored;
}

// The whole of `text` on `stream`, flushed; false with errno set when any of it did not go.
bool writeAll(FILE* stream, const std::string& text) {
  errno = 0;
  const bool written = fwrite(text.data(), 1, text.size(), stream) == text.size();
  const bool flushed = fflush(stream) == 0;
  if ((!written || !flushed) && errno == 0)
    errno = EIO;
  return written && flushed;
}

}  // namespace

const char* replyResultName(int result) {
  switch (result) {
    case APP_CONTROL_RESULT_SUCCEEDED:
      return "succeeded";
    case APP_CONTROL_RESULT_FAILED:
      return "failed";
    case APP_CONTROL_RESULT_CANCELED:
      return "canceled";
    default:
      return "other";
  }
}

int reportRun(Platform& platform,
              const LaunchOptions& options,
              const RunOutcome& outcome,
              DeviceHooks& hooks) {
  // Looked for before the deliveries below, which may give peers tasks of their own; a run ended
  // inside a nested loop never got to release anything.
  std::vector<Leftover> leftovers;
  if (!outcome.insideNestedLoop)
    leftovers = findLeftovers(platform);
  platform.deliverToPeers();
  RunReport report;
  report.line("watch dir", options.deviceDir);
  report.line("cloud dir", options.cloudDir);
  report.setText("device", options.deviceDir);
  report.setText("cloud", options.cloudDir);
  reportRequests(platform, report);
  reportSchedule(platform, options, report);
  hooks.finish(platform, outcome, report);
  reportLeftovers(leftovers, report);
  writeRunTrace(platform, options, report);
  if (!outcome.endedBySelf)
    reportWaits(platform, report);
  reportEnd(options, outcome, report);

  const int status = statusOf(outcome, report);
  report.line("status", std::to_string(status));
  report.set("status", jsonInt(status));

  std::string summary = "\n== morvik-service run ==\n";
  for (const std::string& line : report.lines())
    summary += line + "\n";
  appendToLog(options.deviceDir, summary);
  // What a script reads must be whole: a write that fails or falls short is the run's status.
  std::string failure;
  const std::string shown = options.jsonPath == "-" ? report.json(true) + "\n" : summary;
  if (!writeAll(stdout, shown))
    failure = std::string("cannot write the ") +
              (options.jsonPath == "-" ? "JSON result" : "summary") + ": " + g_strerror(errno);
  if (!options.jsonPath.empty() && options.jsonPath != "-") {
    const std::string json = report.json(true) + "\n";
    g_autoptr(GError) error = nullptr;
    if (!g_file_set_contents(options.jsonPath.c_str(), json.data(),
                             static_cast<gssize>(json.size()), &error) &&
        failure.empty())
      failure = std::string("cannot write the JSON result: ") + error->message;
  }
  if (!failure.empty()) {
    fprintf(stderr, "morvik-service: %s\n", failure.c_str());
    return kStatusOutputFailed;
  }
  return status;
}

}  // namespace launcher
