// morvik-emu doctor: what is wrong with a watch or a cloud, one line per finding.
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"
#include "emu/DirectoryKind.h"
#include "emu/StrictJson.h"
#include "host/DeviceAdmission.h"

namespace emucli {

namespace {

// A writer still busy with a temporary file finishes well within this.
const gint64 kStaleAfterSeconds = 60;

// The names in `dir`, in order.
std::vector<std::string> namesIn(const std::string& dir) {
  std::vector<std::string> names;
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  if (!listing)
    return names;
  while (const char* name = g_dir_read_name(listing))
    names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

// Temporary files named `prefix`* that no writer has touched for a while.
void findStaleFiles(const std::string& dir,
                    const char* prefix,
                    std::vector<std::string>& findings) {
  const gint64 now = g_get_real_time() / G_USEC_PER_SEC;
  for (const std::string& name : namesIn(dir)) {
    if (!g_str_has_prefix(name.c_str(), prefix))
      continue;
    g_autofree char* path = g_build_filename(dir.c_str(), name.c_str(), nullptr);
    GStatBuf info;
    if (g_lstat(path, &info) == 0 && now - info.st_mtime >= kStaleAfterSeconds)
      findings.push_back("stale temporary file " + name + " (untouched for " +
                         std::to_string(now - info.st_mtime) + " s)");
  }
}

// A photo's path must stay inside the watch's directory.
bool isInside(const std::string& relativePath) {
  if (relativePath.empty() || g_path_is_absolute(relativePath.c_str()))
    return false;
  g_auto(GStrv) parts = g_strsplit(relativePath.c_str(), "/", -1);
  for (char** part = parts; *part; ++part) {
    if (g_strcmp0(*part, "..") == 0)
      return false;
  }
  return true;
}

void checkWatch(const std::string& dir, std::vector<std::string>& findings) {
  emu::DeviceProfile profile;
  std::string error;
  if (!profile.load(dir, error)) {
    findings.push_back("profile unreadable: " + error);
    return;
  }
  for (const emu::BackgroundImage& image : profile.images) {
    if (!isInside(image.path)) {
      findings.push_back("photo " + image.fileName + ": its path '" + image.path +
                         "' leaves the watch directory");
      continue;
    }
    g_autofree char* path = g_build_filename(dir.c_str(), image.path.c_str(), nullptr);
    if (!g_file_test(path, G_FILE_TEST_EXISTS))
      findings.push_back("photo " + image.fileName + ": " + image.path + " is missing");
    else if (!g_file_test(path, G_FILE_TEST_IS_REGULAR))
      findings.push_back("photo " + image.fileName + ": " + image.path + " is not a regular file");
  }
  for (const host::PackageInfo& app : profile.packages) {
    if (app.preload)
      continue;
    const bool listed =
        std::any_of(profile.catalogue.begin(), profile.catalogue.end(),
                    [&](const emu::CatalogueItem& item) { return item.pkgId == app.pkgId; });
    if (!listed)
      findings.push_back("app " + app.appId + ": downloaded, but the store catalogue has no " +
                         app.pkgId + " (a restore cannot install it)");
  }
  for (const auto& fault : profile.faults)
    findings.push_back("fault switch " + fault.first +
                       (fault.second.empty() ? std::string() : "=" + fault.second) + " is set");
  findStaleFiles(dir, (std::string(emu::DeviceProfile::kFileName) + ".").c_str(), findings);
}

void checkCloud(const std::string& dir, std::vector<std::string>& findings, size_t& sets) {
  emu::CloudStore store(dir);
  std::vector<unsigned long long> ids;
  std::string error;
  if (!listCloudSets(store, ids, error)) {
    findings.push_back(error);
    return;
  }
  sets = ids.size();
  for (unsigned long long id : ids) {
    const std::string set = "set " + std::to_string(id) + ": ";
    std::string document;
    if (!readSetDocument(store, id, document, error)) {
      findings.push_back(error);  // it names the set
      continue;
    }
    g_autoptr(JsonNode) root = emu::parseStrictJson(document, error);
    if (!root)
      findings.push_back(set + "its document is not strict JSON: " + error);
    else if (!JSON_NODE_HOLDS_OBJECT(root))
      findings.push_back(set + "its document is not a JSON object");
  }
  findStaleFiles(dir, ".incoming-", findings);
}

}  // namespace

int runDoctor(const Verb& verb, int argc, char** argv) {
  VerbOptions options(verb);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1)
    return fail("doctor needs one watch DIR or CLOUD directory");
  const std::string& dir = options.positional()[0];
  const emu::DirectoryKind kind = emu::classifyDirectory(dir);
  if (kind == emu::DirectoryKind::kMissing || kind == emu::DirectoryKind::kNotADirectory)
    return fail("'" + dir + "' is not a directory");
  if (kind == emu::DirectoryKind::kOther)
    return fail("'" + dir + "' is neither a watch (it has no " + emu::DeviceProfile::kFileName +
                ") nor a cloud (it holds other files and no backup set)");
  const bool watch = kind == emu::DirectoryKind::kWatch;
  std::vector<std::string> findings;
  size_t sets = 0;
  std::string tooLong;
  if (watch && !host::fitsWatchBuffers(dir, tooLong))
    findings.push_back(tooLong);
  if (watch)
    checkWatch(dir, findings);
  else
    checkCloud(dir, findings, sets);
  for (const std::string& finding : findings)
    printf("%s\n", finding.c_str());
  if (!findings.empty())
    return 1;
  if (watch)
    printf("no findings: %s is a healthy watch\n", dir.c_str());
  else
    printf("no findings: %s is a cloud with %zu set%s\n", dir.c_str(), sets, sets == 1 ? "" : "s");
  return kStatusOk;
}

}  // namespace emucli
