// morvik-emu log: the watch's log, filtered like the device's log reader.
#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "host/LogFormat.h"

namespace emucli {

namespace {

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Calls `visit` with each line of the log, without its newline.
template <typename Visit>
bool eachLine(const std::string& path, std::string& error, Visit visit) {
  FilePtr file(fopen(path.c_str(), "r"));
  if (!file) {
    error = "cannot read the log '" + path + "'";
    return false;
  }
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t length;
  while ((length = getline(&buffer, &capacity, file.get())) >= 0) {
    std::string line(buffer, static_cast<size_t>(length));
    if (!line.empty() && line.back() == '\n')
      line.pop_back();
    visit(line);
  }
  free(buffer);
  return true;
}

}  // namespace

int runLog(const Verb& verb, int argc, char** argv) {
  std::optional<std::string> runText;
  std::optional<std::string> levelText;
  std::vector<std::string> tags;
  bool last = false;
  VerbOptions options(verb);
  options.value("run", "N", "Only the Nth run, counted from 1 at the top of the log", &runText);
  options.flag("last", "Only the last run", &last);
  options.values("tag", "TAG", "Only lines of TAG; may be given more than once", &tags);
  options.value("level", "LEVEL", "Only lines at LEVEL or above (V, D, I, W, E, F, or a name)",
                &levelText);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1)
    return fail("log needs exactly one DIR");
  if (runText && last)
    return fail("log takes --run N or --last, not both");
  char level = 'V';
  if (levelText && (level = host::logPriorityByName(*levelText)) == 0)
    return fail("--level needs V, D, I, W, E or F (or verbose ... fatal), not '" + *levelText +
                "'");

  g_autofree char* path =
      g_build_filename(options.positional()[0].c_str(), "log", "dlog.log", nullptr);
  if (!g_file_test(path, G_FILE_TEST_IS_REGULAR))
    return fail("there is no log at '" + std::string(path) + "'");
  std::string error;
  host::DeviceLogLine parsed;
  // Runs are numbered by their markers; lines before the first belong to none.
  long long wanted = 0;
  if (runText || last) {
    long long runs = 0;
    if (!eachLine(path, error, [&](const std::string& line) {
          if (host::parseDeviceLogLine(line, parsed) && host::isRunMarker(parsed))
            ++runs;
        }))
      return fail(error);
    guint64 number = 0;
    if (runText &&
        !g_ascii_string_to_unsigned(runText->c_str(), 10, 1, G_MAXINT64, &number, nullptr))
      return fail("--run needs a run number from 1, not '" + *runText + "'");
    wanted = last ? runs : static_cast<long long>(number);
    if (wanted < 1 || wanted > runs)
      return fail("the log holds " + std::to_string(runs) + " run" + (runs == 1 ? "" : "s") +
                  (last ? "" : ", not run " + *runText));
  }

  const bool filtered = !tags.empty() || level != 'V';
  long long run = 0;
  if (!eachLine(path, error, [&](const std::string& line) {
        const bool readable = host::parseDeviceLogLine(line, parsed);
        const bool marker = readable && host::isRunMarker(parsed);
        if (marker)
          ++run;
        if (wanted != 0 && run != wanted)
          return;
        if (!marker && filtered &&
            (!readable ||
             (!tags.empty() && std::find(tags.begin(), tags.end(), parsed.tag) == tags.end()) ||
             host::logPriorityRank(parsed.priority) < host::logPriorityRank(level)))
          return;
        printf("%s\n", line.c_str());
      }))
    return fail(error);
  if (fflush(stdout) != 0)
    return fail("cannot write to stdout");
  return kStatusOk;
}

}  // namespace emucli
