// morvik-emu doctor: what is wrong with a watch or a cloud, one line per finding.
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "MvText.h"
#include "MvWatchLayout.h"
#include "MvWatchNames.h"
#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"
#include "emu/DirectoryKind.h"
#include "emu/RunJournal.h"
#include "emu/SampleWatch.h"
#include "emu/StrictJson.h"
#include "launcher/DeviceAdmission.h"

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

// A run that ended before it saved the watch leaves its journal: what it applied, which the
// profile as shown already holds.
void findInterruptedRun(const std::string& dir, std::vector<std::string>& findings) {
  if (!emu::RunJournal::exists(dir))
    return;
  emu::DeviceProfile unsaved;
  emu::RunJournal::Contents contents;
  std::string error;
  if (!emu::RunJournal::replay(dir, unsaved, error, &contents)) {
    findings.push_back("interrupted run: its journal cannot be read: " + error);
    return;
  }
  launcher::DeviceLock lock;
  if (!lock.acquire(dir, error)) {
    findings.push_back("a run is under way: it has applied " + contents.describe() + " so far");
    return;
  }
  findings.push_back("interrupted run: it applied " + contents.describe() +
                     " and ended before saving the watch; show and diff include them, and "
                     "the next run saves them (" +
                     emu::RunJournal::kFileName + ")");
}

// The watch's own directories, which its apps write into, must be directories of the watch and
// not links to elsewhere: a restore would write through them.
void findLinkedDirectories(const std::string& dir, std::vector<std::string>& findings) {
  std::vector<std::string> relatives = {"apps", "log"};
  for (const std::string& app : namesIn(dir + "/apps")) {
    // Each directory on the way to the app's shared trusted one, and its photo storage.
    const std::string trusted = mvSharedTrustedDir(app);
    for (size_t at = trusted.find('/', trusted.find('/') + 1); at != std::string::npos;
         at = trusted.find('/', at + 1))
      relatives.push_back(trusted.substr(0, at));
    relatives.push_back(trusted);
    for (const char* inside : {"/data", "/data/backgrounds"})
      relatives.push_back("apps/" + app + inside);
  }
  for (const std::string& relative : relatives) {
    g_autofree char* path = g_build_filename(dir.c_str(), relative.c_str(), nullptr);
    if (!g_file_test(path, G_FILE_TEST_IS_SYMLINK))
      continue;
    g_autofree char* target = g_file_read_link(path, nullptr);
    findings.push_back("directory " + relative + " is a link to " + (target ? target : "?") +
                       ": runs refuse to write through it");
  }
}

// Photo files in the watch face service's storage that no photo of the watch names: what a
// restore killed between copying a photo and noting it leaves.
void findOrphanPhotos(const std::string& dir,
                      const emu::DeviceProfile& profile,
                      std::vector<std::string>& findings) {
  std::set<std::string> named;
  for (const emu::BackgroundImage& image : profile.images)
    named.insert(image.path);
  for (const std::string& name : namesIn(dir + "/" + emu::kBackgroundDir)) {
    const std::string relative = std::string(emu::kBackgroundDir) + "/" + name;
    if (named.count(relative) == 0)
      findings.push_back("file " + relative +
                         " is no photo of the watch (left by a run that "
                         "ended before noting it)");
  }
}

void checkWatch(const std::string& dir, std::vector<std::string>& findings) {
  emu::DeviceProfile profile;
  std::string error;
  findInterruptedRun(dir, findings);
  findLinkedDirectories(dir, findings);
  if (!profile.load(dir, error)) {
    findings.push_back("profile unreadable: " + error);
    return;
  }
  findOrphanPhotos(dir, profile, findings);
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
  if (watch && !launcher::fitsWatchBuffers(dir, MV_SERVICE_APP_ID, tooLong))
    findings.push_back(tooLong);
  if (watch)
    checkWatch(dir, findings);
  else
    checkCloud(dir, findings, sets);
  for (const std::string& finding : findings)
    printf("%s\n", mvShownText(finding).c_str());
  if (!findings.empty())
    return 1;
  if (watch)
    printf("no findings: %s is a healthy watch\n", dir.c_str());
  else
    printf("no findings: %s is a cloud with %zu set%s\n", dir.c_str(), sets, sets == 1 ? "" : "s");
  return kStatusOk;
}

}  // namespace emucli
