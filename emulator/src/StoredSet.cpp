#include "emu/StoredSet.h"

#include "emu/OutsideText.h"

namespace emu {

namespace {

std::string counted(size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

StoredSet StoredSet::read(const CloudStore& store, unsigned long long id) {
  std::vector<host::RecordOutline> outline;
  std::string error;
  // The outline costs no memory per value: a set too large to read is known before reading it.
  if (!store.outline(id, outline, error)) {
    StoredSet set;
    set.id = id;
    set.unreadable = error;
    return set;
  }
  if (outline.size() > kMaxSetRecords) {
    StoredSet set;
    set.id = id;
    set.records = outline.size();
    set.unreadable = "set " + std::to_string(id) + " holds " + std::to_string(outline.size()) +
                     " records, more than the " + std::to_string(kMaxSetRecords) +
                     " a set may hold";
    return set;
  }
  std::vector<host::CloudRecord> records;
  if (!store.read(id, records, error)) {
    StoredSet set;
    set.id = id;
    set.unreadable = error;
    return set;
  }
  std::vector<std::string> values;
  values.reserve(records.size());
  for (host::CloudRecord& record : records)
    values.push_back(record.value ? std::move(*record.value) : std::string());
  records.clear();
  return fromValues(id, values);
}

StoredSet StoredSet::fromValues(unsigned long long id, std::vector<std::string>& values) {
  StoredSet set;
  set.id = id;
  set.records = values.size();
  for (size_t i = 0; i < values.size(); ++i) {
    BackupDocument document;
    std::string problem;
    if (!document.read(std::move(values[i]), problem))
      problem = "not a backup document: " + problem;
    else
      problem = document.unusable;
    std::string().swap(values[i]);
    if (!problem.empty()) {
      if (++set.unusableRecords <= kNamedProblems)
        set.problems.push_back("record " + std::to_string(i + 1) + ": " + problem);
      continue;
    }
    set.document.merge(document);
  }
  return set;
}

std::string StoredSet::describe() const {
  if (!unreadable.empty())
    return unreadable;
  std::string text = document.describe();
  if (records == 1)
    return unusableRecords == 0 ? text : problems.front();
  if (unusableRecords == records)
    text = "nothing usable";
  return counted(records, "record", "records") + " (" +
         counted(unusableRecords, "unusable", "unusable") + "): " + text;
}

}  // namespace emu
