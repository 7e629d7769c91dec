#include "emu/DirectoryKind.h"

#include <glib.h>

#include "emu/DeviceProfile.h"

namespace emu {

namespace {

bool isCloudFile(const char* name) {
  return (g_str_has_prefix(name, "set-") &&
          (g_str_has_suffix(name, ".dat") || g_str_has_suffix(name, ".deleted"))) ||
         (g_str_has_prefix(name, ".incoming-") && g_str_has_suffix(name, ".dat"));
}

}  // namespace

DirectoryKind classifyDirectory(const std::string& dir) {
  if (!g_file_test(dir.c_str(), G_FILE_TEST_EXISTS))
    return DirectoryKind::kMissing;
  if (!g_file_test(dir.c_str(), G_FILE_TEST_IS_DIR))
    return DirectoryKind::kNotADirectory;
  g_autofree char* profile = g_build_filename(dir.c_str(), DeviceProfile::kFileName, nullptr);
  if (g_file_test(profile, G_FILE_TEST_EXISTS))
    return DirectoryKind::kWatch;
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  if (!listing)
    return DirectoryKind::kOther;
  bool empty = true;
  while (const char* name = g_dir_read_name(listing)) {
    if (isCloudFile(name))
      return DirectoryKind::kCloud;
    empty = false;
  }
  return empty ? DirectoryKind::kEmpty : DirectoryKind::kOther;
}

bool requireWatch(const std::string& dir, std::string& error) {
  switch (classifyDirectory(dir)) {
    case DirectoryKind::kWatch:
      return true;
    case DirectoryKind::kCloud:
      error = "'" + dir + "' is a cloud, not a watch";
      return false;
    default: {
      g_autofree char* profile = g_build_filename(dir.c_str(), DeviceProfile::kFileName, nullptr);
      error = "'" + dir + "' is not a watch: there is no " + profile;
      return false;
    }
  }
}

bool requireCloud(const std::string& dir, bool mayBeMissing, std::string& error) {
  switch (classifyDirectory(dir)) {
    case DirectoryKind::kCloud:
    case DirectoryKind::kEmpty:
      return true;
    case DirectoryKind::kMissing:
      if (mayBeMissing)
        return true;
      error = "cloud directory '" + dir + "' does not exist";
      return false;
    case DirectoryKind::kWatch:
      error = "'" + dir + "' is a watch, not a cloud";
      return false;
    case DirectoryKind::kNotADirectory:
      error = "'" + dir + "' is not a cloud: it is not a directory";
      return false;
    case DirectoryKind::kOther:
      break;
  }
  error = "'" + dir + "' is not a cloud: it holds other files and no backup set";
  return false;
}

}  // namespace emu
