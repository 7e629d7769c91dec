// morvik-emu timeline: a run's trace (morvik-service --trace) drawn as an SVG sequence picture,
// for those without a trace viewer.
#include <glib.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "emu/StrictJson.h"

namespace emucli {

namespace {

// Larger than any run's trace; a bound, so that no file can make the picture endless.
const gsize kMaxTraceBytes = 64 << 20;

const int kLeft = 80;  // the time column
const int kColumn = 230;
const int kTop = 80;
const int kRow = 22;
const size_t kLabelChars = 38;
const size_t kHeaderChars = 30;

struct Event {
  char phase = 'i';
  std::string name;
  std::string category;
  gint64 track = 0;
  double ts = 0;
  double duration = 0;
  gint64 flowId = 0;
  int row = -1;
  bool startsArrow = false;  // an instant whose delivery is drawn as an arrow
};

struct Trace {
  std::map<gint64, std::string> trackNames;
  std::vector<Event> events;  // instants, durations and flow ends, in time order
};

std::string xmlEscaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// At most `chars` characters, cut at a character.
std::string label(const std::string& text, size_t chars = kLabelChars) {
  if (g_utf8_strlen(text.c_str(), -1) <= static_cast<glong>(chars))
    return xmlEscaped(text);
  const char* end = g_utf8_offset_to_pointer(text.c_str(), static_cast<glong>(chars) - 1);
  return xmlEscaped(std::string(text.c_str(), end) + "\u2026");
}

std::string member(JsonObject* object, const char* name) {
  JsonNode* node = json_object_get_member(object, name);
  return node && JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == G_TYPE_STRING
             ? json_node_get_string(node)
             : std::string();
}

double number(JsonObject* object, const char* name) {
  JsonNode* node = json_object_get_member(object, name);
  return node && JSON_NODE_HOLDS_VALUE(node) ? json_node_get_double(node) : 0;
}

bool readTrace(const std::string& path, Trace& trace, std::string& error) {
  g_autofree char* contents = nullptr;
  gsize length = 0;
  g_autoptr(GError) failure = nullptr;
  if (!g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
    error = "'" + path + "' is not a readable file";
    return false;
  }
  if (!g_file_get_contents(path.c_str(), &contents, &length, &failure)) {
    error = failure->message;
    return false;
  }
  if (length > kMaxTraceBytes) {
    error = "'" + path + "' is larger than a run's trace can be";
    return false;
  }
  g_autoptr(JsonNode) root = emu::parseStrictJson(std::string(contents, length), error);
  JsonObject* object = root && JSON_NODE_HOLDS_OBJECT(root) ? json_node_get_object(root) : nullptr;
  JsonNode* list = object ? json_object_get_member(object, "traceEvents") : nullptr;
  if (!list || !JSON_NODE_HOLDS_ARRAY(list)) {
    error = "'" + path + "' is not a trace: " + (root ? "it has no \"traceEvents\" list" : error);
    return false;
  }
  JsonArray* events = json_node_get_array(list);
  for (guint i = 0; i < json_array_get_length(events); ++i) {
    JsonNode* node = json_array_get_element(events, i);
    if (!JSON_NODE_HOLDS_OBJECT(node))
      continue;
    JsonObject* entry = json_node_get_object(node);
    const std::string phase = member(entry, "ph");
    Event event;
    event.track = static_cast<gint64>(number(entry, "tid"));
    if (phase == "M" && member(entry, "name") == "thread_name") {
      JsonNode* args = json_object_get_member(entry, "args");
      if (args && JSON_NODE_HOLDS_OBJECT(args))
        trace.trackNames[event.track] = member(json_node_get_object(args), "name");
      continue;
    }
    if (phase.size() != 1 || std::string("iIXsf").find(phase[0]) == std::string::npos)
      continue;
    event.phase = phase[0] == 'I' ? 'i' : phase[0];
    event.name = member(entry, "name");
    event.category = member(entry, "cat");
    event.ts = number(entry, "ts");
    event.duration = number(entry, "dur");
    event.flowId = static_cast<gint64>(number(entry, "id"));
    if (!trace.trackNames.count(event.track))
      trace.trackNames[event.track] = "track " + std::to_string(event.track);
    trace.events.push_back(std::move(event));
  }
  std::stable_sort(trace.events.begin(), trace.events.end(),
                   [](const Event& a, const Event& b) { return a.ts < b.ts; });
  return true;
}

// The instant at the same time as events[at] that it belongs to: the nearest before it on its
// track (a trace gives each instant first, then its arrow's ends), else the nearest on its track,
// else the nearest on any track; npos when none.
size_t instantOf(const std::vector<Event>& events, size_t at) {
  const Event& event = events[at];
  auto nearest = [&](bool sameTrack, bool before, bool after) {
    for (size_t distance = 1; distance < events.size(); ++distance) {
      const bool inBefore = before && distance <= at && events[at - distance].ts == event.ts;
      const bool inAfter =
          after && at + distance < events.size() && events[at + distance].ts == event.ts;
      for (const size_t j : {at - distance, at + distance}) {
        if ((j == at - distance ? inBefore : inAfter) && events[j].phase == 'i' &&
            (!sameTrack || events[j].track == event.track))
          return j;
      }
      if (!inBefore && !inAfter)
        break;
    }
    return std::string::npos;
  };
  for (const size_t found :
       {nearest(true, true, false), nearest(true, true, true), nearest(false, true, true)}) {
    if (found != std::string::npos)
      return found;
  }
  return std::string::npos;
}

// Each instant has a row of its own; an arrow starts on its instant's row and ends on the same
// row, or, when it arrives later, on the row of the instant it arrives at. An instant that
// starts an arrow to another track is drawn as that arrow.
int assignRows(std::vector<Event>& events) {
  int rows = 0;
  for (Event& event : events) {
    if (event.phase == 'i')
      event.row = rows++;
  }
  struct Start {
    size_t instant;  // npos when it has none
    gint64 track;
  };
  std::map<gint64, Start> starts;  // by flow
  for (size_t i = 0; i < events.size(); ++i) {
    Event& event = events[i];
    if (event.phase == 'i')
      continue;
    const size_t instant = instantOf(events, i);
    auto start = starts.find(event.flowId);
    const bool started = start != starts.end() && start->second.instant != std::string::npos;
    if (event.phase == 'f' && started && events[start->second.instant].ts == event.ts)
      event.row = events[start->second.instant].row;
    else
      event.row = instant == std::string::npos ? -1 : events[instant].row;
    if (event.row < 0)
      event.row = rows++;
    if (event.phase == 's')
      starts[event.flowId] = {instant, event.track};
    if (event.phase == 'f' && started && start->second.track != event.track)
      events[start->second.instant].startsArrow = true;
  }
  return rows;
}

// The row of the first instant at or after `ts`.
int rowAt(const std::vector<Event>& events, double ts, int rows) {
  for (const Event& event : events) {
    if (event.phase == 'i' && event.ts >= ts)
      return event.row;
  }
  return rows - 1;
}

struct Colour {
  const char* category;
  const char* value;
};
// The last is for every other category.
const Colour kColours[] = {{"cloud", "#2b6cb0"},
                           {"message", "#2f855a"},
                           {"launch", "#6b46c1"},
                           {"", "#c05621"}};

size_t colourOf(const std::string& category) {
  size_t i = 0;
  while (i + 1 < G_N_ELEMENTS(kColours) && category != kColours[i].category)
    ++i;
  return i;
}

// An app's ID on one line, or on two split at the dot that balances them ("com.talvoro." over
// "clock-orbitline.service").
std::vector<std::string> headerLines(const std::string& name) {
  const size_t length = name.size();
  if (g_utf8_strlen(name.c_str(), -1) <= static_cast<glong>(kHeaderChars))
    return {name};
  size_t split = std::string::npos;
  for (size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', dot + 1)) {
    if (split == std::string::npos ||
        std::max(dot + 1, length - dot - 1) < std::max(split + 1, length - split - 1))
      split = dot;
  }
  if (split == std::string::npos)
    return {name};
  return {name.substr(0, split + 1), name.substr(split + 1)};
}

std::string svgOf(Trace& trace) {
  const int rows = std::max(assignRows(trace.events), 1);
  std::map<gint64, int> column;
  for (const auto& track : trace.trackNames)
    column.emplace(track.first, static_cast<int>(column.size()));
  auto x = [&](gint64 track) { return kLeft + kColumn / 2 + column[track] * kColumn; };
  auto y = [](int row) { return kTop + row * kRow; };
  const int width = kLeft + static_cast<int>(column.size()) * kColumn + 20;
  const int height = y(rows) + 20;

  std::string svg;
  auto add = [&svg](const char* format, auto... values) {
    g_autofree char* text = g_strdup_printf(format, values...);
    svg += text;
  };
  add("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
      "font-family=\"sans-serif\" font-size=\"11\">\n<defs>",
      width, height);
  for (size_t i = 0; i < G_N_ELEMENTS(kColours); ++i)
    add("<marker id=\"arrow%zu\" viewBox=\"0 0 10 10\" refX=\"10\" refY=\"5\" "
        "markerWidth=\"7\" markerHeight=\"7\" orient=\"auto-start-reverse\">"
        "<path d=\"M 0 0 L 10 5 L 0 10 z\" fill=\"%s\"/></marker>",
        i, kColours[i].value);
  add("</defs>\n<rect width=\"%d\" height=\"%d\" fill=\"white\"/>\n", width, height);
  for (const auto& track : trace.trackNames) {
    add("<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"#bbb\"/>\n", x(track.first),
        kTop - 20, x(track.first), height - 10);
    const std::vector<std::string> lines = headerLines(track.second);
    for (size_t i = 0; i < lines.size(); ++i)
      add("<text x=\"%d\" y=\"%d\" text-anchor=\"middle\" font-weight=\"bold\">%s</text>\n",
          x(track.first), kTop - 30 - static_cast<int>(lines.size() - 1 - i) * 14,
          label(lines[i], kHeaderChars).c_str());
  }
  for (const Event& event : trace.events) {
    if (event.phase != 'X')
      continue;
    const int top = y(rowAt(trace.events, event.ts, rows)) - 4;
    const int bottom = y(rowAt(trace.events, event.ts + event.duration, rows)) + 4;
    add("<rect x=\"%d\" y=\"%d\" width=\"10\" height=\"%d\" fill=\"#fbd38d\" stroke=\"#c05621\">"
        "<title>%s (%.3f s)</title></rect>\n",
        x(event.track) - 5, top, std::max(bottom - top, 8), xmlEscaped(event.name).c_str(),
        event.duration / 1e6);
  }
  // Each delivery: an arrow from sender to receiver, named above it beside the sender.
  std::map<gint64, const Event*> starts;
  for (const Event& event : trace.events) {
    if (event.phase == 's') {
      starts[event.flowId] = &event;
    } else if (event.phase == 'f' && starts.count(event.flowId)) {
      const Event& start = *starts[event.flowId];
      if (start.track == event.track)
        continue;
      const size_t colour = colourOf(start.category);
      const int from = x(start.track);
      const bool rightwards = x(event.track) > from;
      add("<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"%s\" "
          "marker-end=\"url(#arrow%zu)\"/>\n",
          from, y(start.row), x(event.track), y(event.row), kColours[colour].value, colour);
      add("<text x=\"%d\" y=\"%d\" text-anchor=\"%s\" fill=\"%s\">%s</text>\n",
          from + (rightwards ? 6 : -6), y(start.row) - 4, rightwards ? "start" : "end",
          kColours[colour].value, label(start.name).c_str());
    }
  }
  // Times where they change, and a dot for what is not a delivery (the exit, a refused send).
  std::string shownTime;
  for (const Event& event : trace.events) {
    if (event.phase != 'i')
      continue;
    g_autofree char* time = g_strdup_printf("%.3f s", event.ts / 1e6);
    if (shownTime != time) {
      add("<text x=\"8\" y=\"%d\">%s</text>\n", y(event.row) + 4, time);
      shownTime = time;
    }
    if (event.startsArrow)
      continue;
    const char* colour = kColours[colourOf(event.category)].value;
    add("<circle cx=\"%d\" cy=\"%d\" r=\"3\" fill=\"%s\"/>\n", x(event.track), y(event.row),
        colour);
    add("<text x=\"%d\" y=\"%d\" fill=\"%s\">%s</text>\n", x(event.track) + 6, y(event.row) - 3,
        colour, label(event.name).c_str());
  }
  svg += "</svg>\n";
  return svg;
}

}  // namespace

int runTimeline(const Verb& verb, int argc, char** argv) {
  std::optional<std::string> output;
  VerbOptions options(verb);
  options.value("output", "FILE", "Write the picture to FILE (default: standard output)", &output);
  options.shortName('o');
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1)
    return fail("timeline needs one TRACE (morvik-service --trace FILE)");
  Trace trace;
  std::string error;
  if (!readTrace(options.positional()[0], trace, error))
    return fail(error);
  const std::string svg = svgOf(trace);
  if (!output || *output == "-")
    return writeOut(svg);
  // A new file or the old one whole, never a picture cut short.
  g_autoptr(GError) failure = nullptr;
  if (!g_file_set_contents(output->c_str(), svg.data(), static_cast<gssize>(svg.size()),
                           &failure)) {
    fprintf(stderr, "morvik-emu: cannot write the output: %s\n", failure->message);
    return kStatusOutput;
  }
  return kStatusOk;
}

}  // namespace emucli
