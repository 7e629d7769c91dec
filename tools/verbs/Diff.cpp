// morvik-emu diff: the differences between two watches' setups.
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "emu/WatchDiff.h"

namespace emucli {

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
  std::vector<std::string> differences;
  std::string error;
  if (!emu::diffWatches(dirs[0], dirs[1], differences, error))
    return fail(error);
  const int verdict = differences.empty() ? kStatusOk : 1;
  if (json) {
    g_autoptr(JsonBuilder) builder = json_builder_new();
    json_builder_begin_object(builder);
    json_builder_set_member_name(builder, "watches");
    json_builder_begin_array(builder);
    json_builder_add_string_value(builder, dirs[0].c_str());
    json_builder_add_string_value(builder, dirs[1].c_str());
    json_builder_end_array(builder);
    json_builder_set_member_name(builder, "same");
    json_builder_add_boolean_value(builder, differences.empty());
    json_builder_set_member_name(builder, "differences");
    json_builder_begin_array(builder);
    for (const std::string& difference : differences)
      json_builder_add_string_value(builder, difference.c_str());
    json_builder_end_array(builder);
    json_builder_end_object(builder);
    return printJson(builder) == kStatusOk ? verdict : kStatusUsage;
  }
  if (differences.empty())
    printf("same setup\n");
  for (const std::string& difference : differences)
    printf("%s\n", difference.c_str());
  return verdict;
}

}  // namespace emucli
