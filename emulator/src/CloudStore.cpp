#include "emu/CloudStore.h"

#include <errno.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace emu {

namespace {

const char kSetPrefix[] = "set-";
const char kSetSuffix[] = ".dat";
// Beyond this many tries at claiming the next ID, something else keeps taking them.
const int kClaimTries = 100;

struct DirCloser {
  void operator()(GDir* dir) const { g_dir_close(dir); }
};

// "set-<digits>.dat" -> the ID.
bool parseSetName(const char* name, unsigned long long& id) {
  const size_t prefix = sizeof kSetPrefix - 1;
  const size_t suffix = sizeof kSetSuffix - 1;
  const size_t length = strlen(name);
  if (length <= prefix + suffix || length > prefix + suffix + 18 ||
      strncmp(name, kSetPrefix, prefix) != 0 || strcmp(name + length - suffix, kSetSuffix) != 0)
    return false;
  unsigned long long value = 0;
  for (size_t i = prefix; i < length - suffix; ++i) {
    if (!g_ascii_isdigit(name[i]))
      return false;
    value = value * 10 + static_cast<unsigned>(name[i] - '0');
  }
  id = value;
  return true;
}

}  // namespace

std::string CloudStore::setPath(unsigned long long id) const {
  char name[64];
  snprintf(name, sizeof name, "%s%06llu%s", kSetPrefix, id, kSetSuffix);
  g_autofree char* path = g_build_filename(dir_.c_str(), name, nullptr);
  return path;
}

bool CloudStore::list(std::vector<unsigned long long>& ids, std::string& error) const {
  g_autoptr(GError) failure = nullptr;
  std::unique_ptr<GDir, DirCloser> dir(g_dir_open(dir_.c_str(), 0, &failure));
  if (!dir) {
    error = "cannot read the cloud directory: " + std::string(failure->message);
    return false;
  }
  std::vector<unsigned long long> found;
  while (const char* name = g_dir_read_name(dir.get())) {
    unsigned long long id = 0;
    if (parseSetName(name, id))
      found.push_back(id);
  }
  std::sort(found.begin(), found.end());
  ids.swap(found);
  return true;
}

bool CloudStore::read(unsigned long long id,
                      std::vector<host::CloudRecord>& records,
                      std::string& error) const {
  if (!host::readRecordFile(setPath(id), records, error)) {
    error = "set " + std::to_string(id) + " is unreadable: " + error;
    return false;
  }
  return true;
}

bool CloudStore::outline(unsigned long long id,
                         std::vector<host::RecordOutline>& records,
                         std::string& error) const {
  if (!host::outlineRecordFile(setPath(id), records, error)) {
    error = "set " + std::to_string(id) + " is unreadable: " + error;
    return false;
  }
  return true;
}

std::string CloudStore::incomingPath(const void* writer) const {
  g_autofree char* name =
      g_strdup_printf(".incoming-%ld-%p.dat", static_cast<long>(getpid()), writer);
  g_autofree char* path = g_build_filename(dir_.c_str(), name, nullptr);
  return path;
}

bool CloudStore::add(const std::vector<host::CloudRecord>& records,
                     unsigned long long& id,
                     std::string& error) {
  const std::string incoming = incomingPath(&records);
  if (!host::writeRecordFile(incoming, records, error)) {
    error = "cannot store the set: " + error;
    return false;
  }
  return claim(incoming, id, error);
}

bool CloudStore::addCopyOf(const std::string& path, unsigned long long& id, std::string& error) {
  const std::string incoming = incomingPath(&path);
  if (!host::copyRecordFile(path, incoming, error)) {
    error = "cannot store the set: " + error;
    return false;
  }
  return claim(incoming, id, error);
}

bool CloudStore::claim(const std::string& incoming, unsigned long long& id, std::string& error) {
  std::vector<unsigned long long> ids;
  if (!list(ids, error)) {
    g_unlink(incoming.c_str());
    return false;
  }
  unsigned long long next = ids.empty() ? 1 : ids.back() + 1;
  // link() refuses an existing name, so two writers never share an ID.
  for (int tries = 0; tries < kClaimTries; ++tries, ++next) {
    const std::string target = setPath(next);
    if (link(incoming.c_str(), target.c_str()) == 0) {
      g_unlink(incoming.c_str());
      id = next;
      return true;
    }
    if (errno != EEXIST) {
      error = "cannot store set " + std::to_string(next) + ": " + g_strerror(errno);
      g_unlink(incoming.c_str());
      return false;
    }
  }
  g_unlink(incoming.c_str());
  error = "cannot claim a new set ID in the cloud directory";
  return false;
}

}  // namespace emu
