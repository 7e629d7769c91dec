#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "MvSvcJsonBuilder.h"
#include "MvSvcJsonParser.h"
#include "MvSvcTypes.h"
#include "host/Platform.h"

namespace {

// A json-glib critical means the service handed the library a node of the wrong type.
void abortOnGlibWarning(const gchar* domain,
                        GLogLevelFlags level,
                        const gchar* message,
                        gpointer data) {
  g_log_default_handler(domain, level, message, data);
  if (level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING))
    abort();
}

host::Platform& platform() {
  static host::Platform instance("", MV_SERVICE_APP_ID);
  static bool configured = false;
  if (!configured) {
    instance.log().setEchoToStderr(false);
    g_log_set_default_handler(&abortOnGlibWarning, nullptr);
    configured = true;
  }
  return instance;
}

// Field by field, in order.
bool sameRecords(const std::vector<WatchResultData>& a, const std::vector<WatchResultData>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return std::tie(x.pkgId, x.svcId, x.result) == std::tie(y.pkgId, y.svcId, y.result);
  });
}

bool sameRecords(const std::vector<WatchImageData>& a, const std::vector<WatchImageData>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return std::tie(x.fileName, x.bgType, x.data) == std::tie(y.fileName, y.bgType, y.data);
  });
}

void check(bool condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "broken: %s\n", what);
    abort();
  }
}

}  // namespace

// json-glib 1.6 leaks the nodes of a second top-level value that it refuses after the root
// ("2[]", "{} {}"). The parser's own leaks still show: they start in json_parser_new.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:json_parser_load_from_data\n";
}

// GLib is built without frame pointers: only the slow unwinder reaches json-glib's frames.
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  platform().log().clear();
  MvSvcJsonParser parser(std::string(reinterpret_cast<const char*>(data), size));
  std::string mainKey;
  std::string subKey;
  int number = 0;
  bool flag = false;
  parser.getStringValue("watch_main_key", mainKey);
  parser.getStringValue("watch_sub_key", subKey);
  parser.getIntegerValue("watch_main_key", number);
  parser.getBooleanValue("watch_sub_key", flag);

  const std::vector<WatchResultData>& results = parser.getResultRestoreList();
  const std::vector<WatchResultData>& downloads = parser.getDownloadList();
  const std::vector<WatchImageData>& images = parser.getImageRestoreList();
  for (const WatchResultData& record : results)
    check(record.result != "downloaded", "a downloaded entry in the result restore list");
  for (const WatchResultData& record : downloads)
    check(record.result == "downloaded", "another entry in the download list");

  // What was read must survive being written and read again, byte for byte: json-glib lets a
  // lone surrogate escape through as bytes that are not UTF-8, which the builder must carry.
  std::vector<WatchResultData> entries = results;
  entries.insert(entries.end(), downloads.begin(), downloads.end());
  MvSvcJsonBuilder builder;
  builder.addStringMember("watch_main_key", mainKey);
  builder.addStringMember("watch_sub_key", subKey);
  builder.addResultXmls(entries);
  builder.addMyPhotos(images);
  std::string text;
  builder.getJsonMessage(text);
  MvSvcJsonParser reread(text);
  std::string rereadMain;
  std::string rereadSub;
  reread.getStringValue("watch_main_key", rereadMain);
  reread.getStringValue("watch_sub_key", rereadSub);
  check(rereadMain == mainKey && rereadSub == subKey, "keys changed on the way round");
  check(sameRecords(reread.getResultRestoreList(), results),
        "result list changed on the way round");
  check(sameRecords(reread.getDownloadList(), downloads), "download list changed on the way round");
  check(sameRecords(reread.getImageRestoreList(), images), "image list changed on the way round");
  return 0;
}
