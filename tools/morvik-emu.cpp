// morvik-emu: makes and inspects emulated watches and clouds.
#include <glib.h>

#include <errno.h>

#include <cstdio>
#include <string>

#include "EmuVerbs.h"
#include "MvText.h"

namespace {

using emucli::Verb;

const Verb kVerbs[] = {
    {"init", "DIR --sample|--blank|--heavy[=N]", "make a watch in DIR",
     "--sample: the user's setup; --blank: none of it, with the same apps and store;\n"
     "--heavy[=N]: the benchmark's reference watch, N times its 20 photos (1 to 16);\n"
     "--blank --heavy: a blank watch whose store can install the heavy watch's apps.\n"
     "Exit status: 0 made, 2 refused (DIR already holds a watch, bad options).",
     emucli::runInit},
    {"show", "DIR", "print the watch's setup",
     "--json: the setup as JSON (its schema is in the README).\nExit status: 0 shown, 2 unreadable "
     "watch.",
     emucli::runShow},
    {"diff", "DIR1 DIR2", "compare two watches' setups",
     "Exit status: 0 same setup, 1 one line (or JSON entry) per difference, 2 unreadable "
     "watch.",
     emucli::runDiff},
    {"fault", "DIR NAME[=VALUE] | DIR clear [NAME] | DIR list",
     "set, clear or list the watch's fault switches", "Exit status: 0 done, 2 refused.",
     emucli::runFault},
    {"platform", "DIR NAME=VALUE | DIR clear [NAME] | DIR list",
     "fix, clear or list the watch's platform personality",
     "Each switch is a behaviour the platform leaves open or a limit it documents; 'list'\n"
     "says which, with the values it takes. A switch left unset takes its default, and the\n"
     "explorer draws every switch per seed. Exit status: 0 done, 2 refused.",
     emucli::runPlatform},
    {"sets", "CLOUD [--delete ID]", "list the cloud's backup sets, or delete one",
     "A deleted set's ID is never given again.\n"
     "Exit status: 0 listed (or deleted), 1 listed but a set is unreadable (named on its line),\n"
     "2 no such cloud or set.",
     emucli::runSets},
    {"export", "CLOUD", "print a set's backup document (default: the newest)",
     "Without --pretty the document comes out byte for byte as it is stored.\n"
     "Exit status: 0 printed, 2 no such set, unreadable set or document.",
     emucli::runExport},
    {"import", "CLOUD FILE|-", "store a backup document (- reads standard input) as a new set",
     "The document must be one strict JSON text (an object) that json-glib reads back the same;\n"
     "a refusal names the line and column. Exit status: 0 stored, 2 refused.",
     emucli::runImport},
    {"log", "DIR [TAG:LEVEL...]", "print the watch's log, filtered like the device's log reader",
     "Run markers (\"run begins: ...\") always show, so runs stay apart.\n"
     "Levels, lowest first: V (verbose), D (debug), I (info), W (warn), E (error), F (fatal);\n"
     "S (silent) in a filter shows none. Filters as the device's reader takes them: TAG:LEVEL\n"
     "shows TAG from LEVEL up, *:LEVEL every other tag, e.g. 'morvik-service:E *:S'.\n"
     "Exit status: 0 printed, 2 no log, or no such run, 3 the output could not be written.",
     emucli::runLog},
    {"timeline", "TRACE [-o FILE.svg]", "draw a run's trace as an SVG sequence picture",
     "TRACE is what morvik-service --trace FILE wrote: one column per app, time going down,\n"
     "each delivery an arrow from sender to receiver named after what it carries, a bar for\n"
     "each wait on a peer.\n"
     "Exit status: 0 drawn, 2 unreadable trace, 3 the picture could not be written.",
     emucli::runTimeline},
    {"doctor", "DIR|CLOUD", "check a watch or a cloud, one line per finding",
     "A watch: its profile's schema, photo files, downloaded apps missing from the store\n"
     "catalogue, fault switches set. A cloud: unreadable sets, documents that are not strict\n"
     "JSON, stale temporary files.\n"
     "Exit status: 0 no findings, 1 findings, 2 neither a watch nor a cloud directory.",
     emucli::runDoctor},
    {"explore", "", "run the service under many seeded schedules and check every run",
     "Each seed picks 1 to 3 launch requests (backup, restore, info, retail mode) 0 to 2 s\n"
     "apart, a sample or blank watch, fault switches, a platform personality, and the delay\n"
     "of every delivery, on a simulated clock: the same seed replays the same run. Each run is\n"
     "judged by a model of the service's rules and a list of invariants. A failed run prints\n"
     "its seed, each broken invariant with its request and field, its traces with the command\n"
     "that draws each (morvik-emu timeline), and a replay command. The mix of statuses,\n"
     "outcomes and personalities follows; the last line is \"explore: seeds=N failures=F\".\n"
     "Exit status: 0 no failures, 1 failures, 2 bad usage or no morvik-service to run.",
     emucli::runExplore},
};

std::string usage() {
  std::string text =
      "Usage:\n  morvik-emu [--help|--version] COMMAND [OPTION...] PARAMETERS\n\n"
      "Makes and inspects the emulated watches and clouds of morvik-service.\n\nCommands:\n";
  for (const Verb& verb : kVerbs) {
    g_autofree char* line =
        g_strdup_printf("  %-8s %s\n             %s\n", verb.name, verb.parameters, verb.summary);
    text += line;
  }
  text +=
      "\nOptions:\n"
      "  -h, --help       Show this help\n"
      "  --version        Show the version\n\n"
      "Run 'morvik-emu COMMAND --help' for a command's options and exit statuses.\n"
      "Exit status: 0 success; 1 the command's own (diff: the setups differ, sets: a set is\n"
      "unreadable, doctor: findings); 2 bad usage or unreadable input; 3 the output could not\n"
      "be written (a full disk, a closed pipe).\n";
  return text;
}

int dispatch(int argc, char* argv[]) {
  // Options up to the command; strict POSIX leaves the command and everything after it alone.
  gboolean help = FALSE;
  gboolean version = FALSE;
  const GOptionEntry entries[] = {
      {"help", 'h', G_OPTION_FLAG_NONE, G_OPTION_ARG_NONE, &help, "Show this help", nullptr},
      {"version", 0, G_OPTION_FLAG_NONE, G_OPTION_ARG_NONE, &version, "Show the version", nullptr},
      {}};
  g_autoptr(GOptionContext) context = g_option_context_new("COMMAND");
  g_option_context_set_help_enabled(context, FALSE);
  g_option_context_set_strict_posix(context, TRUE);
  g_option_context_add_main_entries(context, entries, nullptr);
  g_auto(GStrv) args = g_new0(gchar*, argc + 1);
  for (int i = 0; i < argc; ++i)
    args[i] = g_strdup(argv[i]);
  g_autoptr(GError) error = nullptr;
  if (!g_option_context_parse_strv(context, &args, &error)) {
    std::string reason = error->message;
    reason[0] = g_ascii_tolower(reason[0]);
    return emucli::fail(reason + " (see morvik-emu --help)");
  }
  if (help) {
    fputs(usage().c_str(), stdout);
    return emucli::kStatusOk;
  }
  if (version) {
    printf("morvik-emu %s\n", MORVIK_VERSION);
    return emucli::kStatusOk;
  }
  const int count = static_cast<int>(g_strv_length(args));
  if (count < 2) {
    fputs(usage().c_str(), stderr);
    return emucli::kStatusUsage;
  }
  for (const Verb& verb : kVerbs) {
    if (g_strcmp0(args[1], verb.name) == 0)
      return verb.run(verb, count - 1, args + 1);
  }
  return emucli::fail(std::string("unknown command '") + args[1] + "' (see morvik-emu --help)");
}

}  // namespace

int main(int argc, char* argv[]) {
  mvUseUtf8Locale();
  const std::string notText = mvArgumentsNotUtf8(argc, argv);
  if (!notText.empty())
    return emucli::fail(notText);
  errno = 0;
  const int status = dispatch(argc, argv);
  // Whatever was printed must have arrived: a full disk is no success.
  if (status != emucli::kStatusOutput && (fflush(stdout) != 0 || ferror(stdout)))
    return emucli::failedOutput();
  return status;
}
