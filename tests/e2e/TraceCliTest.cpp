#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <map>
#include <set>
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

// The track each crossing belongs on: who acted.
std::string trackOf(JsonObject* crossing) {
  const std::string kind = json_object_get_string_member(crossing, "kind");
  if (kind == "launch-request")
    return "launcher";
  if (kind == "cloud-callback")
    return "cloud library";
  if (kind == "app-control-reply")
    return json_object_get_string_member(crossing, "peer");
  return "com.talvoro.morvik.service";
}

// A restore that installs apps, on a seeded schedule: its trace holds every crossing of the run's
// JSON result as an instant on the acting app's track, at its time and in its order, with arrows
// from each request to its reply and a bar for each wait on the store; timeline draws it.
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
  std::map<gint64, double> flowStarts;
  std::set<gint64> flowEnds;
  double last = 0;
  bool waitedOnStore = false;
  for (guint i = 0; i < json_array_get_length(events); ++i) {
    JsonObject* event = json_array_get_object_element(events, i);
    const std::string phase = json_object_get_string_member(event, "ph");
    EXPECT_EQ(json_object_get_int_member(event, "pid"), 1);
    const gint64 tid = json_object_get_int_member(event, "tid");
    const double ts = json_object_get_double_member(event, "ts");
    if (phase == "M") {
      tracks[tid] =
          json_object_get_string_member(json_object_get_object_member(event, "args"), "name");
      continue;
    }
    ASSERT_TRUE(tracks.count(tid)) << "an event before its track's name";
    EXPECT_GE(ts, last) << "events out of order at " << i;
    last = ts;
    if (phase == "i") {
      instants.push_back(event);
    } else if (phase == "s") {
      EXPECT_TRUE(flowStarts.emplace(json_object_get_int_member(event, "id"), ts).second);
    } else if (phase == "f") {
      const gint64 id = json_object_get_int_member(event, "id");
      ASSERT_TRUE(flowStarts.count(id)) << "an arrow that ends before it starts";
      EXPECT_LE(flowStarts[id], ts);
      EXPECT_TRUE(flowEnds.insert(id).second);
    } else {
      ASSERT_EQ(phase, "X");
      EXPECT_GE(json_object_get_double_member(event, "dur"), 0);
      waitedOnStore = waitedOnStore || (tracks[tid] == "com.talvoro.vendarosvc" &&
                                        std::string(json_object_get_string_member(event, "name")) ==
                                            "waits on install-by-GUID");
    }
  }
  EXPECT_TRUE(waitedOnStore);
  EXPECT_EQ(flowEnds.size(), flowStarts.size());
  ASSERT_EQ(instants.size(), json_array_get_length(crossings));
  for (guint i = 0; i < instants.size(); ++i) {
    JsonObject* crossing = json_array_get_object_element(crossings, i);
    SCOPED_TRACE(json_object_get_string_member(crossing, "kind"));
    EXPECT_EQ(tracks[json_object_get_int_member(instants[i], "tid")], trackOf(crossing));
    EXPECT_NEAR(json_object_get_double_member(instants[i], "ts"),
                json_object_get_double_member(crossing, "at") * 1e6, 0.5);
  }

  // The picture: well-formed, one dot per instant, one column per track.
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
  size_t dots = 0;
  for (size_t at = picture.find("<circle"); at != std::string::npos;
       at = picture.find("<circle", at + 1))
    ++dots;
  EXPECT_EQ(dots, instants.size());
  for (const auto& track : tracks)
    EXPECT_NE(picture.find(">" + track.second.substr(0, 20)), std::string::npos) << track.second;

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
