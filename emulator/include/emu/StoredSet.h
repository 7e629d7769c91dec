#ifndef EMU_STORED_SET_H
#define EMU_STORED_SET_H

#include <stddef.h>

#include <string>
#include <vector>

#include "emu/BackupDocument.h"
#include "emu/CloudStore.h"

namespace emu {

// A stored set as the end of a run reads it, once, for every check that needs it: its records'
// documents in the order a restore applies them, and which of them the service could not use.
// Bounded whatever the set holds: records are read one after the other and released, and only
// the first few problems are named.
struct StoredSet {
  // Problems named one by one; the rest are counted.
  static constexpr size_t kNamedProblems = 3;

  unsigned long long id = 0;
  // The set could not be read at all: why (then nothing else is filled).
  std::string unreadable;
  size_t records = 0;
  // What a restore of the whole set puts back: the last word on an item counts.
  BackupDocument document;
  // "record 2: watch_items is not a list", for the first kNamedProblems records the service
  // could not use; `unusableRecords` counts them all.
  std::vector<std::string> problems;
  size_t unusableRecords = 0;

  // Reads set `id` of `store`.
  static StoredSet read(const CloudStore& store, unsigned long long id);
  // Reads `values` as the records of set `id`, releasing each as it goes.
  static StoredSet fromValues(unsigned long long id, std::vector<std::string>& values);

  // One line for the summary: "3 faces, 2 watch apps, 2 downloaded apps, 2 photos" for one
  // usable record; the number of records and of unusable ones when there are others.
  std::string describe() const;
};

}  // namespace emu

#endif
