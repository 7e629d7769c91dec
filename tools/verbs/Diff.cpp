// morvik-emu diff: the differences between two watches' setups.
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "MvText.h"
#include "emu/DirectoryKind.h"
#include "emu/WatchDiff.h"

namespace emucli {

namespace {

void addSize(JsonBuilder* builder, const char* member, const std::optional<size_t>& value) {
  if (value)
    addInt(builder, member, static_cast<long long>(*value));
}

int printJsonDiff(const std::vector<std::string>& dirs,
                  const std::vector<emu::WatchDifference>& differences) {
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_object(builder);
  mvJsonAddTextArray(builder, "watches", dirs);
  json_builder_set_member_name(builder, "same");
  json_builder_add_boolean_value(builder, differences.empty());
  json_builder_set_member_name(builder, "differences");
  json_builder_begin_array(builder);
  for (const emu::WatchDifference& difference : differences) {
    json_builder_begin_object(builder);
    addString(builder, "item", difference.item);
    addString(builder, "text", difference.text);
    addSize(builder, "line", difference.line);
    if (difference.line) {
      addStringOrNull(builder, "first_line",
                      difference.firstLine ? &*difference.firstLine : nullptr);
      addStringOrNull(builder, "second_line",
                      difference.secondLine ? &*difference.secondLine : nullptr);
    }
    addSize(builder, "first_bytes", difference.firstSize);
    addSize(builder, "second_bytes", difference.secondSize);
    addSize(builder, "first_differing_byte", difference.firstDifferingByte);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);
  json_builder_end_object(builder);
  return printJson(builder);
}

}  // namespace

int runDiff(const Verb& verb, int argc, char** argv) {
  bool json = false;
  VerbOptions options(verb);
  options.flag("json", "Print the verdict and the differences as JSON", &json);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  const std::vector<std::string>& dirs = options.positional();
  if (dirs.size() != 2)
    return fail("diff needs DIR1 and DIR2");
  std::vector<emu::WatchDifference> differences;
  std::string error;
  if (!emu::requireWatch(dirs[0], error) || !emu::requireWatch(dirs[1], error) ||
      !emu::diffWatches(dirs[0], dirs[1], differences, error))
    return fail(error);
  const int verdict = differences.empty() ? kStatusOk : 1;
  if (json) {
    const int printed = printJsonDiff(dirs, differences);
    return printed == kStatusOk ? verdict : printed;
  }
  if (differences.empty())
    printf("same setup\n");
  for (const emu::WatchDifference& difference : differences)
    printf("%s\n", mvShownText(difference.text).c_str());
  return verdict;
}

}  // namespace emucli
