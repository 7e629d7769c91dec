#include "EmuCli.h"

#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "MvCommandLine.h"
#include "MvText.h"
#include "emu/DirectoryKind.h"
#include "emu/StrictJson.h"

namespace emucli {

int fail(const std::string& reason) {
  fprintf(stderr, "morvik-emu: %s\n", reason.c_str());
  return kStatusUsage;
}

int writeOut(const std::string& text) {
  if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
    return failedOutput();
  return kStatusOk;
}

int failedOutput() {
  const int error = errno;
  fprintf(stderr, "morvik-emu: cannot write the output: %s\n",
          error ? g_strerror(error) : "short write");
  return kStatusOutput;
}

VerbOptions::VerbOptions(const Verb& verb) : verb_(verb) {}

VerbOptions::~VerbOptions() = default;

void VerbOptions::flag(const char* name, const char* help, bool* set) {
  options_.push_back({name, Kind::kFlag, nullptr, help, set, nullptr, nullptr});
}

void VerbOptions::value(const char* name,
                        const char* valueName,
                        const char* help,
                        std::optional<std::string>* value) {
  options_.push_back({name, Kind::kValue, valueName, help, nullptr, value, nullptr});
}

void VerbOptions::optionalValue(const char* name,
                                const char* valueName,
                                const char* help,
                                bool* given,
                                std::optional<std::string>* value) {
  options_.push_back({name, Kind::kOptionalValue, valueName, help, given, value, nullptr});
}

void VerbOptions::values(const char* name,
                         const char* valueName,
                         const char* help,
                         std::vector<std::string>* values) {
  options_.push_back({name, Kind::kValues, valueName, help, nullptr, nullptr, values});
}

void VerbOptions::choices(const char* placeholder,
                          const std::vector<std::pair<std::string, std::string>>& entries) {
  // What a value does starts in one column; a longer syntax puts it on the next line.
  const size_t kWidest = 28;
  size_t width = 0;
  for (const auto& entry : entries)
    width = std::max(width, std::min(entry.first.size(), kWidest));
  choices_ += std::string(placeholder) + " is one of:\n";
  for (const auto& entry : entries) {
    choices_ += "  " + entry.first;
    if (!entry.second.empty())
      choices_ += (entry.first.size() > width ? "\n" + std::string(width + 4, ' ')
                                              : std::string(width + 2 - entry.first.size(), ' ')) +
                  entry.second;
    choices_ += "\n";
  }
  choices_ += "\n";
}

gboolean VerbOptions::onOption(const char* name, const char* value, gpointer self, GError** error) {
  auto* options = static_cast<VerbOptions*>(self);
  const std::string longName = name + strspn(name, "-");
  if (longName == "help" || longName == "h") {
    options->help_ = true;
    return TRUE;
  }
  for (Option& option : options->options_) {
    if (option.name != longName && !(longName.size() == 1 && longName[0] == option.shortName))
      continue;
    switch (option.kind) {
      case Kind::kFlag:
        *option.set = true;
        return TRUE;
      case Kind::kValues:
        option.values->push_back(value);
        return TRUE;
      case Kind::kOptionalValue:
      case Kind::kValue:
        if ((option.set && *option.set) || option.value->has_value()) {
          g_set_error_literal(error, G_OPTION_ERROR, G_OPTION_ERROR_FAILED,
                              mvRepeatedOption("--" + option.name).c_str());
          return FALSE;
        }
        if (option.set)
          *option.set = true;
        if (value)
          *option.value = std::string(value);
        return TRUE;
    }
  }
  g_set_error(error, G_OPTION_ERROR, G_OPTION_ERROR_UNKNOWN_OPTION, "unknown option %s", name);
  return FALSE;
}

int VerbOptions::parse(int argc, char** argv) {
  std::vector<GOptionEntry> entries;
  for (const Option& option : options_) {
    GOptionEntry entry = {};
    entry.long_name = option.name.c_str();
    entry.short_name = option.shortName;
    entry.flags = option.kind == Kind::kFlag            ? G_OPTION_FLAG_NO_ARG
                  : option.kind == Kind::kOptionalValue ? G_OPTION_FLAG_OPTIONAL_ARG
                                                        : G_OPTION_FLAG_NONE;
    entry.arg = G_OPTION_ARG_CALLBACK;
    entry.arg_data = reinterpret_cast<gpointer>(&VerbOptions::onOption);
    entry.description = option.help;
    entry.arg_description = option.valueName;
    entries.push_back(entry);
  }
  gchar** remaining = nullptr;
  GOptionEntry help = {"help",
                       'h',
                       G_OPTION_FLAG_NO_ARG,
                       G_OPTION_ARG_CALLBACK,
                       reinterpret_cast<gpointer>(&VerbOptions::onOption),
                       "Show this help",
                       nullptr};
  GOptionEntry rest = {G_OPTION_REMAINING,
                       0,
                       G_OPTION_FLAG_NONE,
                       G_OPTION_ARG_STRING_ARRAY,
                       &remaining,
                       nullptr,
                       nullptr};
  entries.push_back(help);
  entries.push_back(rest);
  entries.push_back(GOptionEntry{});

  g_autoptr(GOptionContext) context = g_option_context_new(verb_.parameters);
  g_option_context_set_help_enabled(context, FALSE);
  g_option_context_set_summary(context, verb_.summary);
  const std::string description = choices_ + (verb_.details ? verb_.details : "");
  if (!description.empty())
    g_option_context_set_description(context, description.c_str());
  GOptionGroup* group = g_option_group_new(nullptr, nullptr, nullptr, this, nullptr);
  g_option_group_add_entries(group, entries.data());
  g_option_context_set_main_group(context, group);

  g_auto(GStrv) args = g_new0(gchar*, argc + 1);
  for (int i = 0; i < argc; ++i)
    args[i] = g_strdup(argv[i]);
  g_autoptr(GError) error = nullptr;
  const gboolean parsed = g_option_context_parse_strv(context, &args, &error);
  g_auto(GStrv) positional = remaining;
  if (!parsed) {
    std::string reason = error->message;
    if (!reason.empty())
      reason[0] = g_ascii_tolower(reason[0]);
    return fail(std::string(verb_.name) + ": " + reason + " (see morvik-emu " + verb_.name +
                " --help)");
  }
  if (help_) {
    g_autofree char* program = g_strdup_printf("morvik-emu %s", verb_.name);
    g_set_prgname(program);
    g_autofree char* text = g_option_context_get_help(context, TRUE, nullptr);
    fputs(text, stdout);
    return kStatusOk;
  }
  for (gchar** arg = positional; arg && *arg; ++arg)
    positional_.push_back(*arg);
  return -1;
}

bool listCloudSets(const emu::CloudStore& store,
                   std::vector<unsigned long long>& ids,
                   std::string& error,
                   std::vector<std::string>* ignored) {
  if (!emu::requireCloud(store.dir(), false, error))
    return false;
  return store.list(ids, error, ignored);
}

bool readSetDocument(const emu::CloudStore& store,
                     unsigned long long id,
                     std::string& document,
                     std::string& error) {
  std::vector<host::CloudRecord> records;
  if (!store.read(id, records, error))
    return false;
  if (records.size() != 1 || !records[0].value) {
    error = "set " + std::to_string(id) + " holds " + std::to_string(records.size()) +
            " records, not one backup document";
    return false;
  }
  document = std::move(*records[0].value);
  return true;
}

void addString(JsonBuilder* builder, const char* member, const std::string& value) {
  mvJsonAddText(builder, member, value);
}

void addStringOrNull(JsonBuilder* builder, const char* member, const std::string* value) {
  if (value) {
    mvJsonAddText(builder, member, *value);
    return;
  }
  json_builder_set_member_name(builder, member);
  json_builder_add_null_value(builder);
}

void addInt(JsonBuilder* builder, const char* member, long long value) {
  json_builder_set_member_name(builder, member);
  json_builder_add_int_value(builder, value);
}

int printJson(JsonBuilder* builder) {
  g_autoptr(JsonNode) root = json_builder_get_root(builder);
  const std::string text = emu::generateJson(root, true) + "\n";
  return writeOut(text);
}

}  // namespace emucli
