// morvik-emu sets: the cloud's backup sets, as text or JSON.
#include <glib.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "MvText.h"
#include "emu/CloudStore.h"

namespace emucli {

namespace {

// "1732300000123" (milliseconds) -> "2024-11-22 18:26:40 UTC"; nothing for other dates.
std::optional<std::string> utcDate(const std::optional<std::string>& date) {
  if (!date || date->size() < 12 || date->size() > 15 ||
      date->find_first_not_of("0123456789") != std::string::npos)
    return std::nullopt;
  g_autoptr(GDateTime) time =
      g_date_time_new_from_unix_utc(std::strtoll(date->c_str(), nullptr, 10) / 1000);
  if (!time)
    return std::nullopt;
  g_autofree char* text = g_date_time_format(time, "%Y-%m-%d %H:%M:%S UTC");
  return std::string(text);
}

struct SetSummary {
  unsigned long long id = 0;
  std::string error;  // empty when the set was read
  size_t records = 0;
  std::optional<std::string> date;
  size_t valueBytes = 0;
};

int printText(const std::string& cloudDir, const std::vector<SetSummary>& sets) {
  if (sets.empty())
    printf("no backup sets in %s\n", cloudDir.c_str());
  for (const SetSummary& set : sets) {
    if (!set.error.empty()) {
      printf("set %-6llu %s\n", set.id, mvShownText(set.error).c_str());
      continue;
    }
    const std::optional<std::string> utc = utcDate(set.date);
    const std::string date = utc ? *utc : set.date ? *set.date : "(no date)";
    printf("set %-6llu %zu %-8s %-24s %zu bytes\n", set.id, set.records,
           set.records == 1 ? "record" : "records",
           set.records == 0 ? "(empty)" : mvShownText(date).c_str(), set.valueBytes);
  }
  return kStatusOk;
}

int printJsonSets(const std::string& cloudDir, const std::vector<SetSummary>& sets) {
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_object(builder);
  addString(builder, "cloud", cloudDir);
  json_builder_set_member_name(builder, "sets");
  json_builder_begin_array(builder);
  for (const SetSummary& set : sets) {
    json_builder_begin_object(builder);
    addInt(builder, "id", static_cast<long long>(set.id));
    if (!set.error.empty()) {
      addString(builder, "error", set.error);
    } else {
      addInt(builder, "records", static_cast<long long>(set.records));
      const std::optional<std::string> utc = utcDate(set.date);
      addStringOrNull(builder, "date", set.date ? &*set.date : nullptr);
      addStringOrNull(builder, "date_utc", utc ? &*utc : nullptr);
      addInt(builder, "value_bytes", static_cast<long long>(set.valueBytes));
    }
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);
  json_builder_end_object(builder);
  return printJson(builder);
}

int deleteSet(emu::CloudStore& store, const std::string& idText, bool json) {
  guint64 id = 0;
  if (!g_ascii_string_to_unsigned(idText.c_str(), 10, 1, G_MAXUINT64, &id, nullptr))
    return fail("--delete needs a set ID, not '" + idText + "'");
  std::string error;
  if (!store.remove(id, error))
    return fail(error);
  if (!json) {
    printf("deleted set %llu from %s\n", static_cast<unsigned long long>(id), store.dir().c_str());
    return kStatusOk;
  }
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_object(builder);
  addString(builder, "cloud", store.dir());
  addInt(builder, "deleted", static_cast<long long>(id));
  json_builder_end_object(builder);
  return printJson(builder);
}

}  // namespace

int runSets(const Verb& verb, int argc, char** argv) {
  bool json = false;
  std::optional<std::string> deleted;
  VerbOptions options(verb);
  options.flag("json", "Print the sets as JSON", &json);
  options.value("delete", "ID", "Delete set ID (its ID is never given again)", &deleted);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1)
    return fail("sets needs exactly one CLOUD directory");
  const std::string& cloudDir = options.positional()[0];
  emu::CloudStore store(cloudDir);
  std::vector<unsigned long long> ids;
  std::string error;
  std::vector<std::string> ignored;
  if (!listCloudSets(store, ids, error, &ignored))
    return fail(error);
  if (deleted)
    return deleteSet(store, *deleted, json);
  for (const std::string& name : ignored)
    fprintf(stderr, "morvik-emu: ignored %s: not the name of a set ID\n", name.c_str());

  std::vector<SetSummary> sets;
  int unreadable = 0;
  for (unsigned long long id : ids) {
    SetSummary set;
    set.id = id;
    std::vector<host::RecordOutline> records;
    if (!store.outline(id, records, set.error)) {
      ++unreadable;
    } else {
      set.records = records.size();
      if (!records.empty())
        set.date = records[0].date;
      for (const host::RecordOutline& record : records)
        set.valueBytes += record.valueBytes.value_or(0);
    }
    sets.push_back(std::move(set));
  }
  const int printed = json ? printJsonSets(cloudDir, sets) : printText(cloudDir, sets);
  if (printed != kStatusOk)
    return printed;
  if (unreadable > 0) {
    fprintf(stderr, "morvik-emu: %d of %zu sets are unreadable\n", unreadable, ids.size());
    return 1;
  }
  return kStatusOk;
}

}  // namespace emucli
