#include "emu/CloudStore.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "MvHandles.h"
#include "emu/OutsideText.h"

namespace emu {

namespace {

const char kSetPrefix[] = "set-";
const char kSetSuffix[] = ".dat";
// What a deleted set leaves: an empty file that keeps its ID from being given again.
const char kDeletedSuffix[] = ".deleted";
// Beyond this many tries at claiming the next ID, something else keeps taking them.
const int kClaimTries = 100;

const char kIncomingPrefix[] = ".incoming-";

// The one name of each ID: at least six digits, zero-padded, no other leading zero.
std::string canonicalSetName(unsigned long long id, const char* suffix = kSetSuffix) {
  char name[64];
  snprintf(name, sizeof name, "%s%06llu%s", kSetPrefix, id, suffix);
  return name;
}

// "set-<digits>.dat" -> the ID, for the canonical name of an ID up to kMaxSetId only: "set-1.dat"
// or "set-0000001.dat" would otherwise read as a second set 1, and a longer one would overflow.
bool parseSetName(const char* name, unsigned long long& id, const char* setSuffix = kSetSuffix) {
  const size_t prefix = sizeof kSetPrefix - 1;
  const size_t suffix = strlen(setSuffix);
  const size_t length = strlen(name);
  if (length <= prefix + suffix || length > prefix + suffix + 18 ||
      strncmp(name, kSetPrefix, prefix) != 0 || strcmp(name + length - suffix, setSuffix) != 0)
    return false;
  unsigned long long value = 0;
  for (size_t i = prefix; i < length - suffix; ++i) {
    if (!g_ascii_isdigit(name[i]))
      return false;
    value = value * 10 + static_cast<unsigned>(name[i] - '0');
  }
  if (canonicalSetName(value, setSuffix) != name)
    return false;
  id = value;
  return true;
}

bool looksLikeSetName(const char* name) {
  return g_str_has_prefix(name, kSetPrefix) && g_str_has_suffix(name, kSetSuffix);
}

bool isIncomingName(const char* name) {
  return g_str_has_prefix(name, kIncomingPrefix) && g_str_has_suffix(name, kSetSuffix);
}

}  // namespace

std::string CloudStore::setPath(unsigned long long id) const {
  g_autofree char* path = g_build_filename(dir_.c_str(), canonicalSetName(id).c_str(), nullptr);
  return path;
}

bool CloudStore::list(std::vector<unsigned long long>& ids,
                      std::string& error,
                      std::vector<std::string>* ignored) const {
  g_autoptr(GError) failure = nullptr;
  g_autoptr(GDir) dir = g_dir_open(dir_.c_str(), 0, &failure);
  if (!dir) {
    error = "cannot read the cloud directory: " + std::string(failure->message);
    return false;
  }
  std::vector<unsigned long long> found;
  while (const char* name = g_dir_read_name(dir)) {
    unsigned long long id = 0;
    if (parseSetName(name, id))
      found.push_back(id);
    else if (ignored && looksLikeSetName(name))
      ignored->push_back(name);
  }
  std::sort(found.begin(), found.end());
  ids.swap(found);
  if (ignored)
    std::sort(ignored->begin(), ignored->end());
  return true;
}

unsigned long long CloudStore::highestDeleted() const {
  unsigned long long highest = 0;
  g_autoptr(GDir) dir = g_dir_open(dir_.c_str(), 0, nullptr);
  while (const char* name = dir ? g_dir_read_name(dir) : nullptr) {
    unsigned long long id = 0;
    if (parseSetName(name, id, kDeletedSuffix))
      highest = std::max(highest, id);
  }
  return highest;
}

bool CloudStore::remove(unsigned long long id, std::string& error) {
  const std::string path = setPath(id);
  if (!g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
    error = "the cloud has no set " + std::to_string(id);
    return false;
  }
  // The mark first: a backup between the two steps must not take this ID again.
  g_autofree char* mark =
      g_build_filename(dir_.c_str(), canonicalSetName(id, kDeletedSuffix).c_str(), nullptr);
  MvFd fd(g_open(mark, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (fd.get() < 0 || mvReleaseNow(fd) != 0) {
    error = "cannot delete set " + std::to_string(id) + ": " + g_strerror(errno);
    return false;
  }
  // Readers that hold the set (a restore's link to it) keep their bytes.
  if (g_unlink(path.c_str()) != 0) {
    error = "cannot delete set " + std::to_string(id) + ": " + g_strerror(errno);
    return false;
  }
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

bool CloudStore::add(const std::vector<host::CloudRecord>& records,
                     unsigned long long& id,
                     std::string& error) {
  if (records.size() > kMaxSetRecords) {
    error = "cannot store the set: " + std::to_string(records.size()) + " records, more than the " +
            std::to_string(kMaxSetRecords) + " a set may hold";
    return false;
  }
  host::RecordRefs refs;
  for (const host::CloudRecord& record : records)
    refs.push_back(&record);
  return store(
      [&](host::LockedTempFile& incoming, const std::string& pattern, std::string& reason) {
        return incoming.create(pattern, reason) && host::writeRecords(incoming.fd(), refs, reason);
      },
      id, error);
}

bool CloudStore::addCopyOf(const std::string& path, unsigned long long& id, std::string& error) {
  // Linked where the file systems allow: see host::shareRecordFile for why that is safe.
  return store(
      [&](host::LockedTempFile& incoming, const std::string& pattern, std::string& reason) {
        return incoming.createLinkTo(path, pattern) ||
               (incoming.create(pattern, reason) &&
                host::copyFileInto(path, incoming.fd(), reason));
      },
      id, error);
}

std::vector<std::string> CloudStore::removeStaleIncoming() {
  return host::removeStaleTempFiles(dir_, isIncomingName);
}

bool CloudStore::store(const MakeIncoming& make, unsigned long long& id, std::string& error) {
  // What a writer that died left here goes first; a live writer's file stays.
  removeStaleIncoming();
  host::LockedTempFile incoming;
  g_autofree char* pattern = g_build_filename(
      dir_.c_str(), (std::string(kIncomingPrefix) + "XXXXXX.dat").c_str(), nullptr);
  std::string reason;
  if (!make(incoming, pattern, reason)) {
    error = "cannot store the set: " + reason;
    return false;
  }
  std::vector<unsigned long long> ids;
  if (!list(ids, error))
    return false;
  unsigned long long next = std::max(ids.empty() ? 0 : ids.back(), highestDeleted()) + 1;
  // link() refuses an existing name, so two writers never share an ID.
  for (int tries = 0; tries < kClaimTries; ++tries, ++next) {
    if (next > kMaxSetId) {
      error = "cannot store the set: set IDs end at " + std::to_string(kMaxSetId) +
              ", and the cloud already gave out set " + std::to_string(next - 1);
      return false;
    }
    int failure = 0;
    if (incoming.linkTo(setPath(next), failure)) {
      id = next;
      return true;
    }
    if (failure != EEXIST) {
      error = "cannot store set " + std::to_string(next) + ": " + g_strerror(failure);
      return false;
    }
  }
  error = "cannot claim a new set ID in the cloud directory";
  return false;
}

}  // namespace emu
