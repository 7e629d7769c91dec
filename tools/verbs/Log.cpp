// morvik-emu log: the watch's log, filtered like the device's log reader, once or as it grows.
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "MvDeviceLog.h"
#include "MvHandles.h"
#include "emu/DirectoryKind.h"

namespace emucli {

namespace {

// How often --follow looks for new lines.
const gulong kFollowPollMicroseconds = 100 * 1000;

// The device reader's filter specs, "TAG:LEVEL" ("morvik-service:E *:S"): a line shows when its
// level reaches the one given for its tag, or for "*" when its tag has none. S (silent) shows
// nothing; a tag alone means TAG:V. Without specs, everything shows.
class FilterSpecs {
 public:
  bool add(const std::string& filter, std::string& error) {
    const size_t colon = filter.rfind(':');
    const std::string tag = colon == std::string::npos ? filter : filter.substr(0, colon);
    const std::string level = colon == std::string::npos ? "V" : filter.substr(colon + 1);
    char letter = level == "S" || level == "s" ? 'S' : mvLogPriorityByName(level);
    if (tag.empty() || letter == 0) {
      error = "a filter is TAG:LEVEL with a level of V, D, I, W, E, F or S, not '" + filter + "'";
      return false;
    }
    (tag == "*" ? others_ : byTag_[tag]) = letter;
    return true;
  }

  bool shows(const MvDeviceLogLine& line) const {
    auto it = byTag_.find(line.tag);
    const char wanted = it != byTag_.end() ? it->second : others_;
    return wanted != 'S' && mvLogPriorityRank(line.priority) >= mvLogPriorityRank(wanted);
  }

 private:
  std::map<std::string, char> byTag_;
  char others_ = 'V';
};

struct Filter {
  FilterSpecs specs;
  std::vector<std::string> tags;
  char level = 'V';
  std::optional<int> pid;
  long long run = 0;  // 0: every run
  bool laterRunsToo = false;

  // Run markers always show, so that runs stay apart.
  bool shows(const MvDeviceLogLine* parsed, bool marker, long long lineRun) const {
    if (run != 0 && (lineRun < run || (lineRun > run && !laterRunsToo)))
      return false;
    if (marker)
      return true;
    if (!parsed)
      return tags.empty() && level == 'V' && !pid;
    return specs.shows(*parsed) &&
           (tags.empty() || std::find(tags.begin(), tags.end(), parsed->tag) != tags.end()) &&
           mvLogPriorityRank(parsed->priority) >= mvLogPriorityRank(level) &&
           (!pid || parsed->pid == *pid);
  }
};

// Reads the log a line at a time, from where it left off; a line still being written waits.
class LogReader {
 public:
  explicit LogReader(std::string path) : path_(std::move(path)) {}

  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  bool open(std::string& error) {
    file_.reset(fopen(path_.c_str(), "r"));
    if (!file_) {
      error = "cannot read the log '" + path_ + "'";
      return false;
    }
    struct stat info;
    inode_ = fstat(fileno(file_.get()), &info) == 0 ? info.st_ino : 0;
    pending_.clear();
    return true;
  }

  // The next whole line without its newline, or false at the end for now.
  bool next(std::string& line) {
    ssize_t length;
    while ((length = readLine()) >= 0) {
      pending_.append(buffer_.get(), static_cast<size_t>(length));
      if (pending_.empty() || pending_.back() != '\n')
        continue;
      pending_.pop_back();
      line.swap(pending_);
      pending_.clear();
      return true;
    }
    clearerr(file_.get());
    return false;
  }

  // The log was replaced or cut short (a new watch, a cleared log): read it from its start.
  bool replaced() const {
    struct stat info;
    if (stat(path_.c_str(), &info) != 0)
      return false;
    const long at = ftell(file_.get());
    return info.st_ino != inode_ || (at >= 0 && info.st_size < at);
  }

 private:
  std::string path_;
  // getline() grows its buffer in place: lent to it for each line, and taken back.
  ssize_t readLine() {
    char* buffer = buffer_.release();
    const ssize_t length = getline(&buffer, &capacity_, file_.get());
    buffer_.reset(buffer);
    return length;
  }

  MvFilePtr file_;
  ino_t inode_ = 0;
  MvCharPtr buffer_;
  size_t capacity_ = 0;
  std::string pending_;
};

bool countRuns(const std::string& path, long long& runs, std::string& error) {
  LogReader reader(path);
  if (!reader.open(error))
    return false;
  std::string line;
  MvDeviceLogLine parsed;
  runs = 0;
  while (reader.next(line)) {
    if (mvParseDeviceLogLine(line, parsed) && mvIsRunMarker(parsed))
      ++runs;
  }
  return true;
}

// Prints what the filter lets through; with `follow`, waits for more until output fails.
int printLog(const std::string& path, const Filter& filter, bool follow) {
  LogReader reader(path);
  std::string error;
  if (!reader.open(error))
    return fail(error);
  std::string line;
  MvDeviceLogLine parsed;
  long long run = 0;
  for (;;) {
    while (reader.next(line)) {
      const bool readable = mvParseDeviceLogLine(line, parsed);
      const bool marker = readable && mvIsRunMarker(parsed);
      if (marker)
        ++run;
      if (!filter.shows(readable ? &parsed : nullptr, marker, run))
        continue;
      line += '\n';
      if (fwrite(line.data(), 1, line.size(), stdout) != line.size())
        return failedOutput();
    }
    if (fflush(stdout) != 0)
      return failedOutput();
    if (!follow)
      return kStatusOk;
    g_usleep(kFollowPollMicroseconds);
    if (reader.replaced()) {
      if (!reader.open(error))
        continue;  // between a removal and its replacement
      run = 0;
    }
  }
}

}  // namespace

int runLog(const Verb& verb, int argc, char** argv) {
  std::optional<std::string> runText, levelText, pidText;
  std::vector<std::string> tags;
  bool last = false;
  bool follow = false;
  VerbOptions options(verb);
  options.value("run", "N", "Only the Nth run, counted from 1 at the top of the log", &runText);
  options.flag("last", "Only the last run (with --follow: and the runs after it)", &last);
  options.values("tag", "TAG", "Only lines of TAG; may be given more than once", &tags);
  options.value("level", "V|D|I|W|E|F", "Only lines at this level or above (or its name)",
                &levelText);
  options.value("pid", "PID", "Only lines of the process PID", &pidText);
  options.flag("follow", "Keep printing lines as they are written, until interrupted", &follow);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().empty())
    return fail("log needs a watch DIR, then any TAG:LEVEL filters");
  if (runText && last)
    return fail("log takes --run N or --last, not both");
  Filter filter;
  std::string error;
  for (size_t i = 1; i < options.positional().size(); ++i) {
    if (!filter.specs.add(options.positional()[i], error))
      return fail(error);
  }
  if (levelText && (filter.level = mvLogPriorityByName(*levelText)) == 0)
    return fail("--level needs V, D, I, W, E or F (or verbose ... fatal), not '" + *levelText +
                "'");
  guint64 number = 0;
  if (pidText && !g_ascii_string_to_unsigned(pidText->c_str(), 10, 1, G_MAXINT, &number, nullptr))
    return fail("--pid needs a process ID, not '" + *pidText + "'");
  if (pidText)
    filter.pid = static_cast<int>(number);
  filter.tags = tags;

  const std::string& dir = options.positional()[0];
  if (!emu::requireWatch(dir, error))
    return fail(error);
  g_autofree char* path = g_build_filename(dir.c_str(), "log", "dlog.log", nullptr);
  if (!g_file_test(path, G_FILE_TEST_IS_REGULAR) && !follow)
    return fail("there is no log at '" + std::string(path) + "'");
  if (runText || last) {
    long long runs = 0;
    if (!countRuns(path, runs, error))
      return fail(error);
    if (runText &&
        !g_ascii_string_to_unsigned(runText->c_str(), 10, 1, G_MAXINT64, &number, nullptr))
      return fail("--run needs a run number from 1, not '" + *runText + "'");
    filter.run = last ? runs : static_cast<long long>(number);
    filter.laterRunsToo = last && follow;
    if (filter.run < 1 || filter.run > runs)
      return fail("the log holds " + std::to_string(runs) + " run" + (runs == 1 ? "" : "s") +
                  (last ? "" : ", not run " + *runText));
  }
  // A watch that has not run yet has no log: --follow waits for its first line.
  while (follow && !g_file_test(path, G_FILE_TEST_IS_REGULAR))
    g_usleep(kFollowPollMicroseconds);
  return printLog(path, filter, follow);
}

}  // namespace emucli
