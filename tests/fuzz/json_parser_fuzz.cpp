#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
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
  static host::Platform instance("", MVSVC_SERVICE_APP_ID);
  static bool configured = false;
  if (!configured) {
    instance.log().setEchoToStderr(false);
    g_log_set_default_handler(&abortOnGlibWarning, nullptr);
    configured = true;
  }
  return instance;
}

bool isUtf8(const std::string& text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
}

bool allUtf8(const std::vector<WatchResultData>& records) {
  for (const WatchResultData& r : records) {
    if (!isUtf8(r.pkgId) || !isUtf8(r.svcId) || !isUtf8(r.result))
      return false;
  }
  return true;
}

bool allUtf8(const std::vector<WatchImageData>& records) {
  for (const WatchImageData& r : records) {
    if (!isUtf8(r.fileName) || !isUtf8(r.bgType) || !isUtf8(r.data))
      return false;
  }
  return true;
}

bool same(const WatchResultData& a, const WatchResultData& b) {
  return a.pkgId == b.pkgId && a.svcId == b.svcId && a.result == b.result;
}

bool same(const WatchImageData& a, const WatchImageData& b) {
  return a.fileName == b.fileName && a.bgType == b.bgType && a.data == b.data;
}

template <typename Record>
bool sameList(const std::vector<Record>& a, const std::vector<Record>& b) {
  if (a.size() != b.size())
    return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (!same(a[i], b[i]))
      return false;
  }
  return true;
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

  // What was read must survive being written and read again. json-glib lets a lone surrogate
  // escape through as bytes that are not UTF-8, which it then refuses to read; skip those.
  if (!allUtf8(results) || !allUtf8(downloads) || !allUtf8(images))
    return 0;
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
  check(sameList(reread.getResultRestoreList(), results), "result list changed on the way round");
  check(sameList(reread.getDownloadList(), downloads), "download list changed on the way round");
  check(sameList(reread.getImageRestoreList(), images), "image list changed on the way round");
  return 0;
}
