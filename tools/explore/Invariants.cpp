#include "Invariants.h"

#include <glib.h>
#include <string.h>

#include <map>

#include "Oracle.h"
#include "ResultJson.h"
#include "emu/DeviceProfile.h"

namespace explore {

namespace {

void report(Violations& violations,
            const char* name,
            const std::string& text,
            unsigned request = 0,
            const std::string& field = std::string()) {
  violations.push_back(Violation{name, request, field, text});
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  g_auto(GStrv) split = g_strsplit(text.c_str(), "\n", -1);
  for (gchar** line = split; *line; ++line)
    lines.push_back(*line);
  return lines;
}

bool hasLineStarting(const std::string& text, const std::string& start) {
  for (const std::string& line : linesOf(text)) {
    if (line.rfind(start, 0) == 0)
      return true;
  }
  return false;
}

std::string path(const std::string& dir, const std::string& name) {
  g_autofree char* joined = g_build_filename(dir.c_str(), name.c_str(), nullptr);
  return joined;
}

std::set<std::string> entriesOf(const std::string& dir) {
  std::set<std::string> names;
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  while (const char* name = listing ? g_dir_read_name(listing) : nullptr)
    names.insert(name);
  return names;
}

// Names a crashed or careless writer leaves behind: ".incoming-*", "*.XXXXXX" beside a file.
bool isTemporary(const std::string& name) {
  if (name.rfind(".incoming-", 0) == 0)
    return true;
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos || name.size() - dot != 7)
    return false;
  const std::string base = name.substr(0, dot);
  return base == "device.json" || base == "backup.dat" || base == "restore.dat" ||
         base.rfind("set-", 0) == 0;
}

void findTemporaries(const std::string& dir, std::vector<std::string>& found) {
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  if (!listing)
    return;
  while (const char* name = g_dir_read_name(listing)) {
    const std::string child = path(dir, name);
    if (g_file_test(child.c_str(), G_FILE_TEST_IS_DIR) &&
        !g_file_test(child.c_str(), G_FILE_TEST_IS_SYMLINK))
      findTemporaries(child, found);
    else if (isTemporary(name))
      found.push_back(child);
  }
}

void noCrash(const RunFacts& run, const char* name, Violations& violations) {
  if (run.stuck)
    report(violations, name, "the service was still running after 60 s and was killed");
  else if (run.signal)
    report(violations, name, "the service died of " + signalName(run.signal));
}

void noSanitizerReport(const RunFacts& run, const char* name, Violations& violations) {
  const std::string found = sanitizerReport(run.err);
  if (!found.empty())
    report(violations, name, found);
}

// The exit status, the JSON result and the summary say the same, and each launch request's
// answer agrees with its cloud request's outcome.
void resultAgreesWithItself(const RunFacts& run, const char* name, Violations& violations) {
  if (!run.result) {
    report(violations, name, "no JSON result: " + run.resultError);
    return;
  }
  JsonObject* result = run.result;
  const gint64 status = integer(result, "status");
  if (!run.signal && !run.stuck && status != run.status)
    report(violations, name,
           "exit status " + std::to_string(run.status) + ", result " + std::to_string(status), 0,
           "status");
  const std::string by = member(object(result, "ended"), "by");
  const bool failed = json_array_get_length(array(result, "failures")) > 0;
  const gint64 follows = by == "deadline" ? 3 : by == "service" ? (failed ? 4 : 0) : status;
  if (follows != status)
    report(violations, name,
           std::to_string(status) + " does not follow from its end and failures (" +
               std::to_string(follows) + ")",
           0, "status");
  if (!hasLineStarting(run.out, "status    " + std::to_string(status)))
    report(violations, name, "the summary does not give the exit status");
  std::map<gint64, std::string> answers;
  forEachObject(array(result, "requests"), [&](JsonObject* request) {
    answers[integer(request, "id")] = member(object(request, "reply"), "result");
  });
  // What each answer leaves a cloud request to end in.
  const std::map<std::string, std::set<std::string>> outcomesOf = {
      {"succeeded", {"succeeded", "failed", "unfinished"}},
      {"failed", {"refused"}},
      {"canceled", {"superseded"}},
      {"", {"unanswered", "undelivered"}},
  };
  forEachObject(array(result, "exchanges"), [&](JsonObject* exchange) {
    const gint64 request = integer(exchange, "request");
    const std::string line =
        "cloud     request " + std::to_string(request) + ", " + member(exchange, "type") + ": ";
    if (!hasLineStarting(run.out, line))
      report(violations, name, "the summary has no line " + line, static_cast<unsigned>(request));
    const std::string answer = answers[request];
    auto allowed = outcomesOf.find(answer);
    const std::string outcome = member(exchange, "outcome");
    if (allowed == outcomesOf.end() || !allowed->second.count(outcome))
      report(violations, name,
             "answered " + (answer.empty() ? std::string("nothing") : answer) +
                 ", yet its cloud request is " + outcome,
             static_cast<unsigned>(request), "exchanges.outcome");
  });
}

// The run's order of events, checked for what must hold in any schedule.
void eachAnswerAndCompletionOnce(const RunFacts& run, const char* name, Violations& violations) {
  if (!run.result)
    return;
  JsonArray* events = array(object(run.result, "schedule"), "events");
  if (!events) {
    report(violations, name, "the result has no events", 0, "schedule.events");
    return;
  }
  std::map<gint64, int> replies;
  std::map<std::string, int> completions;
  int transfersOpen = 0;
  forEachObject(events, [&](JsonObject* event) {
    const std::string kind = member(event, "kind");
    const std::string callback = member(event, "name");
    if (kind == "reply-to-launcher" && ++replies[integer(event, "launch")] == 2)
      report(violations, name, "answered twice", static_cast<unsigned>(integer(event, "launch")),
             "requests.reply");
    if (kind == "cloud-callback" &&
        (callback == "backup completed" || callback == "restore completed"))
      ++completions[callback];
    if (kind == "message-sent") {
      const std::string message = member(event, "message");
      if (message == "restore_start" && transfersOpen++ != 0)
        report(violations, name, "a transfer began before the last one had finished");
      if (message == "restore_finished" && --transfersOpen != 0)
        report(violations, name, "a transfer finished that had not begun");
    }
  });
  if (transfersOpen != 0)
    report(violations, name, "a transfer never finished");
  std::map<std::string, int> ended;
  forEachObject(array(run.result, "exchanges"), [&](JsonObject* exchange) {
    const std::string outcome = member(exchange, "outcome");
    if (outcome == "succeeded" || outcome == "failed")
      ++ended[member(exchange, "type") == "restore" ? "restore completed" : "backup completed"];
  });
  for (const char* callback : {"backup completed", "restore completed"}) {
    if (completions[callback] != ended[callback])
      report(violations, name,
             std::string("\"") + callback + "\" came " + std::to_string(completions[callback]) +
                 " times for " + std::to_string(ended[callback]) + " finished exchanges");
  }
}

void outcomesAsPredicted(const RunFacts& run, const char*, Violations& violations) {
  if (!run.result || run.signal || run.stuck)
    return;
  for (Violation& violation : judgeRun(*run.scenario, run.result, run.items))
    violations.push_back(std::move(violation));
}

void nothingLeftRegistered(const RunFacts& run, const char* name, Violations& violations) {
  forEachObject(array(run.result, "leftovers"), [&](JsonObject* leftover) {
    JsonNode* deliberate = json_object_get_member(leftover, "deliberate");
    if (!(deliberate && json_node_get_boolean(deliberate)))
      report(violations, name,
             "the service ended with a " + member(leftover, "kind") + " " +
                 member(leftover, "name") + " still registered",
             0, "leftovers");
  });
}

void watchStillLoads(const RunFacts& run, const char* name, Violations& violations) {
  emu::DeviceProfile after;
  std::string error;
  if (!after.load(run.device, error))
    report(violations, name, "device.json no longer loads: " + error);
}

void nothingWrittenOutside(const RunFacts& run, const char* name, Violations& violations) {
  std::set<std::string> now = entriesOf(run.root);
  for (const char* ours : {kRunResult, kRunTrace, kRunOut, kRunErr})
    now.erase(ours);
  for (const std::string& entry : now) {
    if (!run.entriesBefore.count(entry))
      report(violations, name, "the run wrote " + path(run.root, entry));
  }
  if (!entriesOf(run.scratch).empty())
    report(violations, name, "the run wrote into its HOME or TMPDIR");
  g_autofree char* root = g_canonicalize_filename(run.root.c_str(), nullptr);
  g_autofree char* work = g_canonicalize_filename(run.workDir.c_str(), nullptr);
  const std::string inside = std::string(root) + "/";
  // A file the explorer was writing for another run when the service was forked is closed for
  // the last time by the service: it counts as the service's write, though it is not.
  const std::string explorers = std::string(work) + "/";
  for (const std::string& written : run.writes) {
    if (written.rfind(inside, 0) != 0 && written.rfind(explorers, 0) != 0)
      report(violations, name, "the service wrote " + written);
  }
}

void noTemporaryFileLeft(const RunFacts& run, const char* name, Violations& violations) {
  std::vector<std::string> temporaries;
  findTemporaries(run.device, temporaries);
  findTemporaries(run.cloud, temporaries);
  for (const std::string& temporary : temporaries)
    report(violations, name, "a temporary file was left behind: " + temporary);
}

// Every stored set restores the watch it came from, but for what the run named.
void storedSetsRestoreTheirWatch(const RunFacts& run, const char*, Violations& violations) {
  if (!run.result || !run.checkStoredSet)
    return;
  std::map<gint64, std::vector<std::string>> leftOut;
  forEachObject(array(run.result, "left_out"), [&](JsonObject* finding) {
    leftOut[integer(finding, "set")].push_back(member(finding, "item"));
  });
  forEachObject(array(run.result, "exchanges"), [&](JsonObject* exchange) {
    if (member(exchange, "type") == "backup" && member(exchange, "outcome") == "succeeded")
      run.checkStoredSet(static_cast<unsigned long long>(integer(exchange, "set")),
                         leftOut[integer(exchange, "set")], violations);
  });
}

}  // namespace

const std::vector<Invariant>& invariants() {
  static const std::vector<Invariant> list = {
      {"no crash", noCrash},
      {"no sanitizer report", noSanitizerReport},
      {"a result that agrees with itself", resultAgreesWithItself},
      {"each answer and completion once", eachAnswerAndCompletionOnce},
      {"outcomes as the rules predict", outcomesAsPredicted},
      {"nothing left registered", nothingLeftRegistered},
      {"the watch still loads", watchStillLoads},
      {"nothing written outside the run", nothingWrittenOutside},
      {"no temporary file left", noTemporaryFileLeft},
      {"stored sets restore their watch", storedSetsRestoreTheirWatch},
  };
  return list;
}

std::string sanitizerReport(const std::string& text) {
  static const char* const kMarks[] = {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                                       "runtime error:",          "UndefinedBehaviorSanitizer",
                                       "AddressSanitizer",        "LeakSanitizer"};
  const std::vector<std::string> lines = linesOf(text);
  for (const char* mark : kMarks) {
    for (size_t i = 0; i < lines.size(); ++i) {
      if (lines[i].find(mark) == std::string::npos)
        continue;
      std::string found = lines[i];
      // "==123==ERROR: ..." without the process number.
      if (found.rfind("==", 0) == 0 && found.find("==", 2) != std::string::npos)
        found = found.substr(found.find("==", 2) + 2);
      for (size_t j = i + 1; j < lines.size() && j < i + 40; ++j) {
        const std::string& frame = lines[j];
        if (frame.find(" #") == std::string::npos || frame.find(" in ") == std::string::npos ||
            frame.find("libasan") != std::string::npos ||
            frame.find("libubsan") != std::string::npos ||
            frame.find("sanitizer") != std::string::npos ||
            frame.find("interceptor") != std::string::npos ||
            frame.find("libc.so") != std::string::npos)
          continue;
        found += "; first frame: " + frame.substr(frame.find(" in ") + 4);
        break;
      }
      return found;
    }
  }
  return std::string();
}

std::string signalName(int signal) {
  const char* abbreviation = sigabbrev_np(signal);
  return abbreviation ? std::string("SIG") + abbreviation : "signal " + std::to_string(signal);
}

}  // namespace explore
