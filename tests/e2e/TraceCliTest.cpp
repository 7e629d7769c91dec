#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <map>
#include <string>
#include <vector>

#include "ProcessRun.h"

namespace {

using morvik_test::jsonObject;
using morvik_test::ProcessResult;

using TraceCliTest = morvik_test::CliFixture;

std::string readFile(const std::string& path) {
  g_autofree char* text = nullptr;
  gsize length = 0;
  EXPECT_TRUE(g_file_get_contents(path.c_str(), &text, &length, nullptr)) << path;
  return text ? std::string(text, length) : std::string();
}

// The track each crossing's instant belongs on (who acted), and the sender and receiver of the
// delivery it is, when it is one.
struct Tracks {
  std::string instant, from, to;
};
Tracks tracksOf(JsonObject* crossing) {
  const std::string kind = json_object_get_string_member(crossing, "kind");
  const std::string self = "com.talvoro.morvik.service";
  const std::string peer = json_object_has_member(crossing, "peer")
                               ? json_object_get_string_member(crossing, "peer")
                               : std::string();
  if (kind == "launch-request")
    return {"launcher", "launcher", self};
  if (kind == "reply-to-launcher")
    return {self, self, "launcher"};
  if (kind == "cloud-callback")
    return {"cloud library", "cloud library", self};
  if (kind == "cloud-answer")
    return {self, self, "cloud library"};
  if (kind == "app-control-reply")
    return {peer, peer, self};
  if (kind == "message-delivered" || kind == "message-dropped")
    return {self, peer, self};
  if ((kind == "app-control-sent" || kind == "message-sent") &&
      json_object_get_int_member(crossing, "code") == 0)
    return {self, self, peer};
  return {self, "", ""};
}

struct Flow {
  std::string name, from, to;
  double ts = 0;
};

// A restore that installs apps, on a seeded schedule: its trace holds every crossing of the run's
// JSON result as an instant on the acting app's track, at its time and in its order, each
// delivery an arrow from its sender to its receiver named after what it carries, and a bar for
// each wait on the store; timeline draws each arrow with its name.
TEST_F(TraceCliTest, TheTraceHoldsTheRunsEventsInOrderAndTimelineDrawsThem) {
  const std::string sample = watch("sample", "--sample");
  ASSERT_EQ(service(sample, {"--operation", "backup"}).status, 0);
  const std::string blank = watch("blank", "--blank");
  const std::string trace = root_ + "/run.trace.json";
  const ProcessResult run = service(
      blank, {"--operation", "restore", "--schedule", "5", "--json", "-", "--trace", trace});
  ASSERT_EQ(run.status, 0) << run.err;
  g_autoptr(JsonParser) resultParser = json_parser_new();
  JsonObject* result = jsonObject(resultParser, run.out);
  ASSERT_NE(result, nullptr);
  JsonArray* crossings =
      json_object_get_array_member(json_object_get_object_member(result, "schedule"), "events");

  const std::string text = readFile(trace);
  ASSERT_TRUE(g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr));
  g_autoptr(JsonParser) traceParser = json_parser_new();
  JsonObject* root = jsonObject(traceParser, text);
  ASSERT_NE(root, nullptr);
  JsonArray* events = json_object_get_array_member(root, "traceEvents");
  ASSERT_NE(events, nullptr);
  std::map<gint64, std::string> tracks;
  std::vector<JsonObject*> instants;
  std::vector<Flow> flows;  // in the order they start
  std::map<gint64, size_t> open;
  double last = 0;
  bool waitedOnStore = false;
  for (guint i = 0; i < json_array_get_length(events); ++i) {
    JsonObject* event = json_array_get_object_element(events, i);
    const std::string phase = json_object_get_string_member(event, "ph");
    EXPECT_EQ(json_object_get_int_member(event, "pid"), 1);
    const gint64 tid = json_object_get_int_member(event, "tid");
    const double ts = json_object_get_double_member(event, "ts");
    const std::string name = json_object_get_string_member(event, "name");
    if (phase == "M") {
      tracks[tid] =
          json_object_get_string_member(json_object_get_object_member(event, "args"), "name");
      continue;
    }
    ASSERT_TRUE(tracks.count(tid)) << "an event before its track's name";
    EXPECT_GE(ts, last) << "events out of order at " << i;
    last = ts;
    const gint64 id = phase == "s" || phase == "f" ? json_object_get_int_member(event, "id") : 0;
    if (phase == "i") {
      instants.push_back(event);
    } else if (phase == "s") {
      EXPECT_TRUE(open.emplace(id, flows.size()).second);
      flows.push_back({name, tracks[tid], "", ts});
    } else if (phase == "f") {
      ASSERT_TRUE(open.count(id)) << "an arrow that ends before it starts";
      Flow& flow = flows[open[id]];
      EXPECT_TRUE(flow.to.empty()) << name;
      EXPECT_EQ(flow.ts, ts) << name;
      flow.to = tracks[tid];
    } else {
      ASSERT_EQ(phase, "X");
      EXPECT_GE(json_object_get_double_member(event, "dur"), 0);
      waitedOnStore = waitedOnStore || (tracks[tid] == "com.talvoro.vendarosvc" &&
                                        name == "waits on install-by-GUID com.indie.clock-tidal");
    }
  }
  EXPECT_TRUE(waitedOnStore);
  ASSERT_EQ(instants.size(), json_array_get_length(crossings));
  size_t delivered = 0;
  std::vector<std::string> toWatchFace;
  for (guint i = 0; i < instants.size(); ++i) {
    JsonObject* crossing = json_array_get_object_element(crossings, i);
    SCOPED_TRACE(json_object_get_string_member(crossing, "kind"));
    const Tracks expected = tracksOf(crossing);
    EXPECT_EQ(tracks[json_object_get_int_member(instants[i], "tid")], expected.instant);
    EXPECT_NEAR(json_object_get_double_member(instants[i], "ts"),
                json_object_get_double_member(crossing, "at") * 1e6, 0.5);
    if (expected.from.empty())
      continue;
    ASSERT_LT(delivered, flows.size());
    const Flow& flow = flows[delivered++];
    EXPECT_EQ(flow.from + " -> " + flow.to, expected.from + " -> " + expected.to);
    EXPECT_EQ(flow.name, json_object_get_string_member(instants[i], "name"));
    if (flow.to == "com.talvoro.watchface-service")
      toWatchFace.push_back(flow.name);
  }
  EXPECT_EQ(delivered, flows.size());
  EXPECT_EQ(flows[1].name, "reply to launch request 1: succeeded");
  // Each message names what it carries.
  ASSERT_EQ(toWatchFace.size(), 8u);
  EXPECT_EQ(toWatchFace.front(), "restore_start");
  EXPECT_EQ(toWatchFace[1], "settings of com.talvoro.face.aurora");
  EXPECT_EQ(toWatchFace[4], "photo bg-aurora.jpg");
  EXPECT_EQ(toWatchFace[6], "restore_finished");
  EXPECT_EQ(toWatchFace.back(), "idle face com.talvoro.face.aurora");

  // The picture: well-formed, one column per track, an arrow with its name for each delivery,
  // a dot for each instant that is none (the exit).
  const std::string svg = root_ + "/run.svg";
  ProcessResult drawn = morvik_test::runEmu({"timeline", trace, "-o", svg});
  ASSERT_EQ(drawn.status, 0) << drawn.err;
  const std::string picture = readFile(svg);
  GMarkupParser checker = {};
  g_autoptr(GMarkupParseContext) context =
      g_markup_parse_context_new(&checker, G_MARKUP_DEFAULT_FLAGS, nullptr, nullptr);
  g_autoptr(GError) error = nullptr;
  EXPECT_TRUE(g_markup_parse_context_parse(context, picture.data(),
                                           static_cast<gssize>(picture.size()), &error) &&
              g_markup_parse_context_end_parse(context, &error))
      << (error ? error->message : "");
  auto count = [&](const std::string& part) {
    size_t found = 0;
    for (size_t at = picture.find(part); at != std::string::npos; at = picture.find(part, at + 1))
      ++found;
    return found;
  };
  EXPECT_EQ(count("marker-end="), flows.size());
  EXPECT_EQ(count("<circle"), instants.size() - flows.size());
  for (const Flow& flow : flows)
    EXPECT_NE(picture.find(">" + flow.name + "</text>"), std::string::npos) << flow.name;
  for (const auto& track : tracks)
    EXPECT_NE(picture.find(">" + track.second.substr(0, 12)), std::string::npos) << track.second;

  const struct {
    std::vector<std::string> args;
    int status;
    std::string reason;
  } refused[] = {
      {{"timeline", file("not-a-trace.json", "{\"a\":1}")}, 2, "has no \"traceEvents\" list"},
      {{"timeline", root_ + "/absent.json"}, 2, "is not a readable file"},
      {{"timeline", trace, "-o", root_ + "/no/such/dir.svg"}, 3, "cannot write the output"},
  };
  for (const auto& c : refused) {
    ProcessResult run = morvik_test::runEmu(c.args);
    EXPECT_EQ(run.status, c.status) << c.reason;
    EXPECT_NE(run.err.find(c.reason), std::string::npos) << run.err;
  }
}

}  // namespace
