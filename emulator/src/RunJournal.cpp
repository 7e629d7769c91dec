#include "emu/RunJournal.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <vector>

namespace emu {

const char* const RunJournal::kFileName = "run.journal";

namespace {

// A journal is a run's changes: far smaller than the profile's own limit.
const size_t kMaxJournalBytes = DeviceProfile::kMaxFileBytes * 2;

std::string path(const std::string& deviceDir) {
  g_autofree char* joined = g_build_filename(deviceDir.c_str(), RunJournal::kFileName, nullptr);
  return joined;
}

std::string encoded(const std::string& field) {
  g_autofree char* text =
      g_base64_encode(reinterpret_cast<const guchar*>(field.data()), field.size());
  return text;
}

std::string decoded(const char* text) {
  gsize length = 0;
  g_autofree guchar* bytes = g_base64_decode(text, &length);
  return std::string(reinterpret_cast<const char*>(bytes), length);
}

template <typename T, typename Same>
void upsert(std::vector<T>& items, const T& item, Same same) {
  for (T& held : items) {
    if (same(held)) {
      held = item;
      return;
    }
  }
  items.push_back(item);
}

// One line: its kind, then its fields. False when it is no change of a known kind.
bool applyLine(const std::string& line, DeviceProfile& profile, RunJournal::Contents& contents) {
  g_auto(GStrv) parts = g_strsplit(line.c_str(), " ", -1);
  const guint count = g_strv_length(parts);
  if (count < 2)
    return false;
  std::vector<std::string> fields;
  for (guint i = 1; i < count; ++i)
    fields.push_back(decoded(parts[i]));
  const std::string kind = parts[0];
  if (kind == "config" && fields.size() == 2) {
    profile.config[fields[0]] = fields[1];
    ++contents.config;
  } else if (kind == "package" && fields.size() == 4) {
    const host::PackageInfo info{fields[0], fields[1], fields[2], fields[3] == "1"};
    upsert(profile.packages, info,
           [&](const host::PackageInfo& held) { return held.appId == info.appId; });
    ++contents.packages;
  } else if (kind == "face" && fields.size() == 2) {
    upsert(profile.faces, FaceEntry{fields[0], fields[1]},
           [&](const FaceEntry& held) { return held.pkgId == fields[0]; });
    ++contents.faces;
  } else if (kind == "photo" && fields.size() == 3) {
    upsert(profile.images, BackgroundImage{fields[0], fields[1], fields[2]},
           [&](const BackgroundImage& held) { return held.fileName == fields[0]; });
    ++contents.photos;
  } else if (kind == "watchapp" && fields.size() == 2) {
    for (WatchAppState& app : profile.watchApps) {
      if (app.appId == fields[0])
        app.resultXml = fields[1];
    }
    ++contents.watchApps;
  } else {
    return false;
  }
  return true;
}

std::string counted(size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

std::string RunJournal::Contents::describe() const {
  std::string text;
  auto add = [&text](size_t count, const char* one, const char* many) {
    if (count == 0)
      return;
    text += (text.empty() ? "" : ", ") + counted(count, one, many);
  };
  add(config, "configuration value", "configuration values");
  add(packages, "app", "apps");
  add(faces, "settings document of a face", "settings documents of faces");
  add(photos, "photo", "photos");
  add(watchApps, "settings document of a watch app", "settings documents of watch apps");
  return text.empty() ? "nothing" : text;
}

RunJournal::~RunJournal() = default;

void RunJournal::config(const std::string& key, const std::string& value) {
  append("config", {key, value});
}

void RunJournal::package(const host::PackageInfo& info) {
  append("package", {info.pkgId, info.appId, info.component, info.preload ? "1" : "0"});
}

void RunJournal::face(const FaceEntry& face) {
  append("face", {face.pkgId, face.settings});
}

void RunJournal::photo(const BackgroundImage& image) {
  append("photo", {image.fileName, image.path, image.bgType});
}

void RunJournal::watchApp(const std::string& appId, const std::string& resultXml) {
  append("watchapp", {appId, resultXml});
}

bool RunJournal::failed(std::string& reason) const {
  reason = error_;
  return !error_.empty();
}

void RunJournal::append(const char* kind, std::initializer_list<std::string> fields) {
  if (fd_.get() < 0 && error_.empty()) {
    // Never through a link: the watch's directory is the user's.
    fd_.reset(open(path(deviceDir_).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                   0644));
    if (fd_.get() < 0)
      error_ = "cannot open " + path(deviceDir_) + ": " + g_strerror(errno);
  }
  if (fd_.get() < 0)
    return;
  std::string line = kind;
  for (const std::string& field : fields)
    line += " " + encoded(field);
  line += "\n";
  // One write per line, appended: a kill leaves whole lines and at most one cut short.
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t wrote = write(fd_.get(), line.data() + done, line.size() - done);
    if (wrote < 0 && errno == EINTR)
      continue;
    if (wrote <= 0) {
      error_ = "cannot write " + path(deviceDir_) + ": " + g_strerror(errno);
      return;
    }
    done += static_cast<size_t>(wrote);
  }
}

bool RunJournal::replay(const std::string& deviceDir,
                        DeviceProfile& profile,
                        std::string& error,
                        Contents* contents) {
  Contents counted;
  const std::string file = path(deviceDir);
  MvFd fd(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno == ENOENT) {
      if (contents)
        *contents = counted;
      return true;
    }
    error = "cannot open " + file + ": " + g_strerror(errno);
    return false;
  }
  GStatBuf info;
  std::string text;
  bool ok = fstat(fd.get(), &info) == 0 && S_ISREG(info.st_mode) &&
            static_cast<unsigned long long>(info.st_size) <= kMaxJournalBytes;
  if (!ok)
    error =
        file + ": not a regular file of at most " + std::to_string(kMaxJournalBytes >> 20) + " MiB";
  char chunk[64 * 1024];
  while (ok) {
    const ssize_t got = read(fd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0) {
      error = "cannot read " + file + ": " + g_strerror(errno);
      ok = false;
    }
    if (got <= 0 || text.size() > kMaxJournalBytes)
      break;
    text.append(chunk, static_cast<size_t>(got));
  }
  fd.reset();
  if (!ok)
    return false;
  size_t start = 0;
  size_t line = 1;
  for (size_t end = text.find('\n'); end != std::string::npos;
       start = end + 1, end = text.find('\n', start), ++line) {
    if (!applyLine(text.substr(start, end - start), profile, counted)) {
      error = file + ": line " + std::to_string(line) + " is no change of a run";
      return false;
    }
  }
  if (contents)
    *contents = counted;
  return true;
}

bool RunJournal::exists(const std::string& deviceDir) {
  GStatBuf info;
  return g_lstat(path(deviceDir).c_str(), &info) == 0;
}

void RunJournal::remove(const std::string& deviceDir) {
  g_unlink(path(deviceDir).c_str());
}

}  // namespace emu
