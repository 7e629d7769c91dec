// morvik-emu export: a set's backup document on stdout.
#include <glib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "emu/CloudStore.h"
#include "emu/StrictJson.h"

namespace emucli {

int runExport(const Verb& verb, int argc, char** argv) {
  std::optional<std::string> setText;
  bool pretty = false;
  VerbOptions options(verb);
  options.value("set", "ID", "The set to print (default: the newest)", &setText);
  options.flag("pretty", "Indent the document for reading and editing", &pretty);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1)
    return fail("export needs CLOUD and optionally --set ID");
  emu::CloudStore store(options.positional()[0]);
  std::vector<unsigned long long> ids;
  std::string error;
  if (!listCloudSets(store, ids, error))
    return fail(error);
  unsigned long long id = 0;
  if (setText) {
    guint64 value = 0;
    if (!g_ascii_string_to_unsigned(setText->c_str(), 10, 0, G_MAXUINT64, &value, nullptr))
      return fail("--set needs a set ID, not '" + *setText + "'");
    id = value;
    if (std::find(ids.begin(), ids.end(), id) == ids.end())
      return fail("the cloud has no set " + std::to_string(id) + " (see: morvik-emu sets CLOUD)");
  } else {
    if (ids.empty())
      return fail("the cloud holds no backup set");
    id = ids.back();
  }
  std::string document;
  if (!readSetDocument(store, id, document, error))
    return fail(error);
  if (pretty) {
    g_autoptr(JsonNode) root = emu::parseStrictJson(document, error);
    if (!root)
      return fail("set " + std::to_string(id) + " is not a JSON document: " + error);
    document = emu::generateJson(root, true) + "\n";
  }
  return writeOut(document);
}

}  // namespace emucli
