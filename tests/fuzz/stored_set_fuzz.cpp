// A stored set as the end of a run reads it: the records (the input split at each 0x1E byte) read
// once, merged as a restore applies them and audited against a watch. What a restore of the set
// puts back must be each item's last word. Reading the record file itself is record_file's.
#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <map>
#include <string>
#include <vector>

#include "ScratchDir.h"
#include "emu/SampleWatch.h"
#include "emu/SetAudit.h"
#include "emu/StoredSet.h"

namespace {

const char kRecordSeparator = '\x1e';
// The merge is checked against a naive one, which is quadratic: only for this many records.
const size_t kCheckedRecords = 64;

// A blank watch: the audits look at every item of the set and read no photo from disk.
struct World {
  World() : device(scratch.path() + "/watch") {
    std::string error;
    if (!emu::createBlankWatch(device, error) || !blank.load(device, error))
      abort();
  }

  ScratchDir scratch;
  std::string device;
  emu::DeviceProfile blank;
};

World& world() {
  static World instance;
  return instance;
}

std::vector<std::string> splitRecords(const uint8_t* data, size_t size) {
  std::vector<std::string> values(1);
  for (size_t i = 0; i < size; ++i) {
    if (static_cast<char>(data[i]) == kRecordSeparator)
      values.emplace_back();
    else
      values.back().push_back(static_cast<char>(data[i]));
  }
  return values;
}

void check(bool holds) {
  if (!holds)
    __builtin_trap();
}

bool samePhotos(const emu::BackupDocument& a, const emu::BackupDocument& b) {
  if (a.photos.size() != b.photos.size())
    return false;
  for (size_t i = 0; i < a.photos.size(); ++i) {
    const auto& x = a.photos[i];
    const auto& y = b.photos[i];
    if (x.fileName != y.fileName || x.bgType != y.bgType || x.noData != y.noData ||
        x.dataBytes != y.dataBytes || x.dataCrc != y.dataCrc)
      return false;
  }
  return true;
}

// The quick reading must read each document as json-glib's tree does.
void checkSameAsJsonGlib(const std::string& value, bool read, const emu::BackupDocument& quick) {
  emu::BackupDocument tree;
  std::string error;
  check(tree.read(value, error, emu::BackupDocument::Reader::kJsonGlib) == read);
  if (!read)
    return;
  check(tree.mainKey == quick.mainKey && tree.subKey == quick.subKey &&
        tree.repaired == quick.repaired && tree.unusable.empty() == quick.unusable.empty() &&
        tree.entries.size() == quick.entries.size() && samePhotos(tree, quick));
  for (size_t i = 0; i < tree.entries.size(); ++i) {
    const auto& x = tree.entries[i];
    const auto& y = quick.entries[i];
    check(x.pkgId == y.pkgId && x.svcId == y.svcId && x.result == y.result);
  }
}

// Each item's last word among the usable records, found the slow way.
void checkLastWords(const std::vector<std::string>& values, const emu::StoredSet& set) {
  std::map<std::string, std::string> entries;
  std::map<std::string, emu::BackupDocument::Photo> photos;
  std::string mainKey;
  size_t unusable = 0;
  for (const std::string& value : values) {
    emu::BackupDocument document;
    std::string error;
    const bool read = document.read(value, error);
    checkSameAsJsonGlib(value, read, document);
    if (!read || !document.unusable.empty()) {
      ++unusable;
      continue;
    }
    if (!document.mainKey.empty())
      mainKey = document.mainKey;
    for (const auto& entry : document.entries)
      entries[entry.svcId + '\0' + entry.pkgId] = entry.result;
    for (const auto& photo : document.photos)
      photos[photo.fileName] = photo;
  }
  check(unusable == set.unusableRecords);
  check(mainKey == set.document.mainKey);
  check(entries.size() == set.document.entries.size());
  for (const auto& entry : set.document.entries)
    check(entries[entry.svcId + '\0' + entry.pkgId] == entry.result);
  check(photos.size() == set.document.photos.size());
  for (const auto& photo : set.document.photos) {
    const emu::BackupDocument::Photo& expected = photos[photo.fileName];
    check(expected.bgType == photo.bgType && expected.dataCrc == photo.dataCrc &&
          expected.dataBytes == photo.dataBytes);
  }
}

}  // namespace

// GLib is built without frame pointers: only the slow unwinder reaches its frames.
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

// json-glib 1.6 leaks the nodes of a second top-level value that it refuses after the root.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:json_parser_load_from_data\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World& w = world();
  const std::vector<std::string> values = splitRecords(data, size);
  std::vector<std::string> taken = values;
  const emu::StoredSet set = emu::StoredSet::fromValues(1, taken);
  check(set.unreadable.empty() && set.records == values.size());
  check(set.problems.size() == std::min(set.unusableRecords, emu::StoredSet::kNamedProblems));
  check(set.describe().find('\n') == std::string::npos);
  if (values.size() <= kCheckedRecords)
    checkLastWords(values, set);
  const host::BoundaryRecord boundary;
  for (const auto& finding : emu::auditRestore(w.blank, w.device, set.document, boundary, {}))
    check(!finding.item.empty() && !finding.reason.empty());
  for (const auto& finding : emu::auditBackup(w.blank, w.device, set.document, boundary))
    check(!finding.item.empty() && !finding.reason.empty());
  return 0;
}
