#include "launcher/LaunchOptions.h"

#include <glib.h>

#include <cmath>
#include <cstdlib>
#include <set>

#include "MvCommandLine.h"
#include "MvHandles.h"
#include "MvWatchNames.h"

namespace launcher {

namespace {

const char* const kSummary =
    "Runs the service on the emulated watch DIR against the emulated cloud DIR: each launch\n"
    "request (--operation with its --extra data) is delivered to the service, the next one\n"
    "--then SECONDS after it. The service's log goes to stderr and DIR/log/dlog.log, a summary\n"
    "to stdout and DIR/log/summary.log.\n"
    "\n"
    "OP is backup, restore, info (get backup information), none (a request without an\n"
    "operation) or a full operation URI. A restore takes the newest set, or --set ID.";

const char* const kDescription =
    "Exit status:\n"
    "  0    the service ended itself and every flow succeeded\n"
    "  1    the app refused to start (onCreate returned false)\n"
    "  2    bad usage, an unusable device or cloud directory, or a device another run holds\n"
    "  3    the deadline passed before the service ended itself\n"
    "  4    the service ended itself, but a flow failed or was left undone (see the summary)\n"
    "  5    the summary or the JSON result could not be written whole\n"
    "  128+N  ended by signal N (129 SIGHUP, 130 SIGINT, 131 SIGQUIT, 141 SIGPIPE, 143 "
    "SIGTERM...)\n";

// What the callbacks fill while GLib walks the command line, in its order.
struct Parse {
  LaunchOptions* options = nullptr;
  bool hasOperation = false;
  bool help = false;
  bool version = false;
  std::set<std::string> seen;  // single-value options given so far
};

bool fail(GError** error, const std::string& reason) {
  g_set_error_literal(error, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE, reason.c_str());
  return false;
}

bool parseSeconds(const char* text, double& seconds) {
  if (!text || text[0] == '\0')
    return false;
  char* end = nullptr;
  const double value = g_ascii_strtod(text, &end);
  if (*end != '\0' || !std::isfinite(value) || value < 0 || value > kMaxLaunchSeconds)
    return false;
  seconds = value;
  return true;
}

bool once(Parse& parse, const char* name, GError** error) {
  if (!parse.seen.insert(name).second)
    return fail(error, mvRepeatedOption(name));
  return true;
}

bool isOperationUri(const char* value) {
  g_autofree char* scheme = g_uri_parse_scheme(value);
  return scheme && g_uri_is_valid(value, G_URI_FLAGS_NONE, nullptr);
}

gboolean onDevice(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  if (!once(parse, name, error))
    return FALSE;
  parse.options->deviceDir = value;
  return TRUE;
}

gboolean onCloud(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  if (!once(parse, name, error))
    return FALSE;
  parse.options->cloudDir = value;
  return TRUE;
}

// An output file, named once and not empty.
bool outputPath(Parse& parse,
                const char* name,
                const char* value,
                const char* need,
                std::string& path,
                GError** error) {
  if (!once(parse, name, error))
    return false;
  if (value[0] == '\0')
    return fail(error, std::string(name) + " needs " + need);
  path = value;
  return true;
}

gboolean onJson(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  return outputPath(parse, name, value, "a file name, or - for standard output",
                    parse.options->jsonPath, error);
}

gboolean onTrace(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  return outputPath(parse, name, value, "a file name", parse.options->tracePath, error);
}

gboolean onDeadline(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  if (!once(parse, name, error))
    return FALSE;
  double seconds = 0;
  if (!parseSeconds(value, seconds) || seconds == 0)
    return fail(error, std::string("--deadline needs a positive number of seconds up to ") +
                           std::to_string(static_cast<long>(kMaxLaunchSeconds)) + ", not '" +
                           value + "'");
  parse.options->deadlineSeconds = seconds;
  return TRUE;
}

gboolean onSchedule(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  if (!once(parse, name, error))
    return FALSE;
  guint64 seed = 0;
  if (!g_ascii_string_to_unsigned(value, 10, 0, G_MAXUINT64, &seed, nullptr))
    return fail(error, std::string("--schedule needs a whole number, not '") + value + "'");
  parse.options->scheduleSeed = seed;
  return TRUE;
}

gboolean onOperation(const gchar*, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  if (parse.hasOperation)
    return fail(error, "a launch request has one --operation; use --then SECONDS before the next");
  const std::string operation = expandOperation(value);
  if (operation == value && !isOperationUri(value))
    return fail(error, std::string("unknown operation '") + value +
                           "': use backup, restore, info, none or a full operation URI");
  parse.options->requests.back().operation = operation;
  parse.hasOperation = true;
  return TRUE;
}

gboolean onSet(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  LaunchRequest& request = parse.options->requests.back();
  if (request.setId)
    return fail(error, mvRepeatedOption(name) + " for one launch request");
  guint64 id = 0;
  if (!g_ascii_string_to_unsigned(value, 10, 1, G_MAXUINT64, &id, nullptr))
    return fail(error, std::string("--set needs a set ID, not '") + value + "'");
  request.setId = id;
  return TRUE;
}

gboolean onExtra(const gchar*, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  const std::string text = value;
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    return fail(error, "--extra needs KEY=VALUE, not '" + text + "'");
  parse.options->requests.back().extras.emplace_back(text.substr(0, equals),
                                                     text.substr(equals + 1));
  return TRUE;
}

gboolean onThen(const gchar*, const gchar* value, gpointer data, GError** error) {
  Parse& parse = *static_cast<Parse*>(data);
  if (!parse.hasOperation)
    return fail(error, "--then follows a launch request with its --operation");
  LaunchRequest next;
  if (!parseSeconds(value, next.delaySeconds))
    return fail(error, std::string("--then needs a number of seconds from 0 to ") +
                           std::to_string(static_cast<long>(kMaxLaunchSeconds)) + ", not '" +
                           value + "'");
  parse.options->requests.push_back(next);
  parse.hasOperation = false;
  return TRUE;
}

gpointer callback(GOptionArgFunc function) {
  return reinterpret_cast<gpointer>(function);
}

MvGOptionContextPtr makeContext(Parse* parse) {
  const GOptionEntry entries[] = {
      {"device", 0, 0, G_OPTION_ARG_CALLBACK, callback(onDevice), "The emulated watch (required)",
       "DIR"},
      {"cloud", 0, 0, G_OPTION_ARG_CALLBACK, callback(onCloud),
       "The emulated cloud (required; a backup makes it when missing)", "DIR"},
      {"operation", 0, 0, G_OPTION_ARG_CALLBACK, callback(onOperation),
       "The launch request's operation", "backup|restore|info|none|URI"},
      {"extra", 0, 0, G_OPTION_ARG_CALLBACK, callback(onExtra),
       "Extra data of the launch request (repeatable)", "KEY=VALUE"},
      {"set", 0, 0, G_OPTION_ARG_CALLBACK, callback(onSet),
       "The backup set the launch request's restore takes (default: the newest)", "ID"},
      {"then", 0, 0, G_OPTION_ARG_CALLBACK, callback(onThen),
       "Starts another launch request, SECONDS after the previous one", "SECONDS"},
      {"deadline", 0, 0, G_OPTION_ARG_CALLBACK, callback(onDeadline),
       "Ends a run that has not ended by itself (default 120)", "SECONDS"},
      {"json", 0, 0, G_OPTION_ARG_CALLBACK, callback(onJson),
       "Writes the run's result as JSON to FILE, or to stdout for -", "FILE"},
      {"trace", 0, 0, G_OPTION_ARG_CALLBACK, callback(onTrace),
       "Writes the run as a timeline (Chrome trace-event JSON) to FILE", "FILE"},
      {"schedule", 0, 0, G_OPTION_ARG_CALLBACK, callback(onSchedule),
       "Delays every delivery by a seeded amount, on a simulated clock", "SEED"},
      {"help", 'h', 0, G_OPTION_ARG_NONE, &parse->help, "Shows this help", nullptr},
      {"version", 0, 0, G_OPTION_ARG_NONE, &parse->version, "Shows the version", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
  };
  MvGOptionContextPtr context(g_option_context_new(nullptr));
  g_option_context_set_help_enabled(context.get(), FALSE);
  g_option_context_set_summary(context.get(), kSummary);
  g_option_context_set_description(context.get(), kDescription);
  GOptionGroup* group = g_option_group_new("morvik-service", "", "", parse, nullptr);
  g_option_group_add_entries(group, entries);
  g_option_context_set_main_group(context.get(), group);
  return context;
}

}  // namespace

std::string expandOperation(const std::string& name) {
  if (name == "backup")
    return MV_OPERATION_BACKUP;
  if (name == "restore")
    return MV_OPERATION_RESTORE;
  if (name == "info")
    return MV_OPERATION_GET_BACKUP_INFO;
  if (name == "none")
    return std::string();
  return name;
}

bool parseLaunchOptions(const std::vector<std::string>& args,
                        LaunchOptions& options,
                        std::string& error) {
  options = LaunchOptions();
  options.arguments = args;
  options.requests.emplace_back();
  Parse parse;
  parse.options = &options;
  auto context = makeContext(&parse);

  // GLib takes argv with a program name and may shorten it.
  std::vector<std::string> copies = args;
  std::vector<char*> argv{const_cast<char*>("morvik-service")};
  for (std::string& arg : copies)
    argv.push_back(&arg[0]);
  int argc = static_cast<int>(argv.size());
  char** argvp = argv.data();
  g_autoptr(GError) failure = nullptr;
  if (!g_option_context_parse(context.get(), &argc, &argvp, &failure)) {
    error = failure->message;
    if (g_error_matches(failure, G_OPTION_ERROR, G_OPTION_ERROR_UNKNOWN_OPTION))
      error = "unknown option '" + error.substr(error.find("-")) + "'";
    else if (error.rfind("Missing argument for ", 0) == 0)
      error = error.substr(21) + " needs a value";
    return false;
  }
  if (parse.help || parse.version) {
    options.action = parse.help ? LaunchOptions::Action::kHelp : LaunchOptions::Action::kVersion;
    return true;
  }
  if (argc > 1) {
    error = std::string("unexpected argument '") + argvp[1] + "'";
    return false;
  }
  if (options.deviceDir.empty()) {
    error = "--device DIR is required";
    return false;
  }
  if (options.cloudDir.empty()) {
    error = "--cloud DIR is required";
    return false;
  }
  if (!parse.hasOperation) {
    error = "every launch request needs --operation";
    return false;
  }
  for (size_t i = 0; i < options.requests.size(); ++i) {
    if (options.requests[i].setId && options.requests[i].operation != expandOperation("restore")) {
      error = "--set chooses the set of a restore, and launch request " + std::to_string(i + 1) +
              " is not one";
      return false;
    }
  }
  return true;
}

std::string launchUsage(const std::string& program) {
  Parse parse;
  auto context = makeContext(&parse);
  g_autofree char* help = g_option_context_get_help(context.get(), TRUE, nullptr);
  std::string text = help;
  // GLib names the program from g_get_prgname(); the usage line names it as it was called.
  const std::string usage = "Usage:\n  ";
  if (text.rfind(usage, 0) == 0) {
    const size_t end = text.find(' ', usage.size());
    text.replace(usage.size(), end - usage.size(), program);
  }
  return text;
}

}  // namespace launcher
